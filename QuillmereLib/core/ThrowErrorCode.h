#pragma once

#include "QuillmereLib/core/CUErrorContents.h"

// Throws `code` in the form that callers catch.
[[noreturn]] inline void ThrowErrorCode(_CUErrorContents code) {
  throw static_cast<unsigned int>(code);
}
