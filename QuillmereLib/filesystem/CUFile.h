#pragma once

// CUFile, operations on a file by its path.

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUSharedPtr.h"

class CUStringMac;

// Static forms only. A path's string must not be in use on another thread meanwhile.
class QUILLMERE_API CUFile : public CUObject {
 public:
  // Whether the path names an entry that is no directory, of whatever kind; a symbolic link counts
  // as what it leads to. False for null. Never throws.
  static bool Exists(CUStringMac* path);
  static bool Exists(CUSharedPtr<CUStringMac> path);
};
