#include "QuillmereLib/filesystem/CUFile.h"

#include <CoreServices/CoreServices.h>

#include "QuillmereLib/strings/CUStringMac.h"

bool CUFile::Exists(CUStringMac* path) {
  if (path == nullptr) return false;
  FSRef ref;
  Boolean isDirectory = false;
  char const* const text = *path;
  return FSPathMakeRef(reinterpret_cast<UInt8 const*>(text), &ref, &isDirectory) == noErr &&
         !isDirectory;
}

bool CUFile::Exists(CUSharedPtr<CUStringMac> path) { return Exists(path.Get()); }
