#pragma once

// A guess at what a file is, from its first bytes.

#include <QuillmereLib/QuillmereLib.h>

#include <string>

// The most bytes that a guess looks at.
constexpr unsigned long long kTypeGuessSize = 64;

// A short name such as "text" or "PNG"; "data" for what is not known. `head` holds the file's first
// bytes, the whole file if it is no longer.
std::string GuessType(CUMemoryStream& head);
