#pragma once

// What CUObject calls as an object begins and as it ends: nothing, in a build that does not count.

class CUObject;

inline void CUObjectBegins(CUObject const*) noexcept {}
inline void CUObjectEnds(CUObject const*) noexcept {}
