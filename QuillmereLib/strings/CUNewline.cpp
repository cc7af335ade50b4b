#include "QuillmereLib/strings/CUNewline.h"

char const* CU_NEWLINE_CHAR = "\n";
