#pragma once

// The one query of the system's settings that the library makes.

#include <cstddef>

// Reads the setting `name` into `oldp`, of `*oldlenp` bytes, and stores its size there. Known is
// "hw.activecpu", an int: the processors that this process may run on. Returns 0, or -1 with errno:
// ENOENT for an unknown name, ENOMEM where the value does not fit, EPERM where `newp` is not null,
// since nothing can be set. Any thread may call it.
extern "C" int sysctlbyname(char const* name, void* oldp, std::size_t* oldlenp, void* newp,
                            std::size_t newlen);
