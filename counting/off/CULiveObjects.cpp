#include "QuillmereLib/core/CULiveObjects.h"

std::map<std::string, std::size_t> CUCountLiveObjects() { return {}; }

void CUPrintLiveObjects(std::FILE* to) {
  std::fputs("Objects are not counted: the library is built without QUILLMERE_COUNT_OBJECTS.\n",
             to);
}
