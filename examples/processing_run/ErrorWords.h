#pragma once

// The library's error codes and results in words.

#include <QuillmereLib/QuillmereLib.h>

#include <string>

// What an error code of _CUErrorContents says, as it is thrown.
std::string ErrorWords(unsigned int errorCode);

// What the result of an operation says.
std::string ResultWords(CUResult result);
