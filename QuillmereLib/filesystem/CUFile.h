#pragma once

// CUFile, operations on a file by its path.

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUResult.h"
#include "QuillmereLib/core/CUSharedPtr.h"

class CUStringMac;
struct _CopyProgress_Info;

// Static forms only. A path's string must not be in use on another thread meanwhile.
class QUILLMERE_API CUFile : public CUObject {
 public:
  // Whether the path names an entry that is no directory, of whatever kind; a symbolic link counts
  // as what it leads to. False for null. Never throws.
  static bool Exists(CUStringMac* path);
  static bool Exists(CUSharedPtr<CUStringMac> path);

  // Each does what the operation of that name does on a CUFileInfo of the path (CUFileInfo.h). A
  // null path throws error code 2 and an empty one 1.
  static void Delete(CUStringMac& path);
  static void Delete(CUSharedPtr<CUStringMac> path);
  static void Rename(CUSharedPtr<CUStringMac> path, CUSharedPtr<CUStringMac> newName);
  static CUResult CopyWithProgress(CUSharedPtr<CUStringMac> source,
                                   CUSharedPtr<CUStringMac> destination, _CopyProgress_Info* info,
                                   bool overwrite);
  static CUResult MoveWithProgress(CUSharedPtr<CUStringMac> source,
                                   CUSharedPtr<CUStringMac> destination, _CopyProgress_Info* info,
                                   bool overwrite);
};
