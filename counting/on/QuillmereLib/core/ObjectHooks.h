#pragma once

// What CUObject calls as an object begins and as it ends, in a build that counts.

#include "QuillmereLib/core/CUExport.h"

class CUObject;

QUILLMERE_API void CUObjectBegins(CUObject const* object) noexcept;
QUILLMERE_API void CUObjectEnds(CUObject const* object) noexcept;
