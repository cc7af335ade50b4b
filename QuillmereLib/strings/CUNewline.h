#pragma once

#include "QuillmereLib/core/CUExport.h"

// The text that ends the lines of descriptions and dumps: a line feed.
extern QUILLMERE_API char const* CU_NEWLINE_CHAR;
