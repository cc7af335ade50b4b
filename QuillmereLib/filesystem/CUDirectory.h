#pragma once

// CUDirectory, operations on a directory by its path.

#include "QuillmereLib/collections/CUArray.h"
#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/filesystem/CUDirectoryInfo.h"

class CUStringMac;

// Static forms only; each makes a CUDirectoryInfo for the one call and throws as that does. A
// path's string must not be in use on another thread meanwhile, and is not changed. A null path by
// CUSharedPtr throws error code 2 unless told otherwise; one by pointer must not be passed.
class QUILLMERE_API CUDirectory : public CUObject {
 public:
  // Whether the path names a directory; a symbolic link counts as what it leads to. False for null.
  // Never throws.
  static bool Exists(CUStringMac* path);
  static bool Exists(CUSharedPtr<CUStringMac> path);

  // CUDirectoryInfo::Create, which makes missing ancestors too; the directory, never null.
  static CUSharedPtr<CUDirectoryInfo> CreateDirectory(CUSharedPtr<CUStringMac> path);
  static CUSharedPtr<CUDirectoryInfo> CreateDirectory(CUStringMac* path);

  // Delete an empty directory, or with `recursive` one with all its contents.
  static void Delete(CUSharedPtr<CUStringMac> path);
  static void Delete(CUStringMac* path);
  static void Delete(CUSharedPtr<CUStringMac> path, bool recursive);
  static void Delete(CUStringMac* path, bool recursive);

  // To the user's trash, and to a new name in its folder. The path must not be null.
  static void Recycle(CUSharedPtr<CUStringMac> path);
  static void Rename(CUSharedPtr<CUStringMac> path, CUSharedPtr<CUStringMac> newName);

  // The entries as CUDirectoryInfo or CUFileInfo with full paths.
  static CUSharedPtr<CUArray> GetDirectories(CUSharedPtr<CUStringMac> path);
  static CUSharedPtr<CUArray> GetDirectories(CUStringMac* path);
  static CUSharedPtr<CUArray> GetFiles(CUSharedPtr<CUStringMac> path);
  static CUSharedPtr<CUArray> GetFiles(CUStringMac* path);
};
