#pragma once

// Tells which objects live, to find those that nobody lets go.
//
// Objects are counted where the library is built with QUILLMERE_COUNT_OBJECTS, as by the preset
// "debug"; the whole program must then be compiled with the headers of that build. Elsewhere
// counting costs nothing and there is nothing to tell.

#include <cstddef>
#include <cstdio>
#include <map>
#include <string>

#include "QuillmereLib/core/CUExport.h"

// How many objects of each class live, by the classes' names in full; the caller's own classes are
// among them. Objects on the stack and members of other objects count, too. An object that another
// thread is making or destroying meanwhile is told as one of a base class, or not at all. Empty
// where objects are not counted.
QUILLMERE_API std::map<std::string, std::size_t> CUCountLiveObjects();

// Writes the same to `to`, a line for each class, and how many there are in all.
QUILLMERE_API void CUPrintLiveObjects(std::FILE* to);
