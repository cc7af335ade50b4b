#include "QuillmereLib/filesystem/CUFile.h"

#include "QuillmereLib/filesystem/CUFileInfo.h"
#include "QuillmereLib/filesystem/PathRef.h"

bool CUFile::Exists(CUStringMac* path) {
  if (path == nullptr) return false;
  FSRef ref;
  Boolean isDirectory = false;
  return MakeRef(*path, &ref, &isDirectory) && !isDirectory;
}

bool CUFile::Exists(CUSharedPtr<CUStringMac> path) { return Exists(path.Get()); }

void CUFile::Delete(CUStringMac& path) { CUSharedPtr<CUFileInfo>(new CUFileInfo(path))->Delete(); }

void CUFile::Delete(CUSharedPtr<CUStringMac> path) {
  CUSharedPtr<CUFileInfo>(new CUFileInfo(path))->Delete();
}

void CUFile::Rename(CUSharedPtr<CUStringMac> path, CUSharedPtr<CUStringMac> newName) {
  CUSharedPtr<CUFileInfo>(new CUFileInfo(path))->Rename(newName);
}

CUResult CUFile::CopyWithProgress(CUSharedPtr<CUStringMac> source,
                                  CUSharedPtr<CUStringMac> destination, _CopyProgress_Info* info,
                                  bool overwrite) {
  return CUSharedPtr<CUFileInfo>(new CUFileInfo(source))
      ->CopyWithProgress(destination, info, overwrite);
}

CUResult CUFile::MoveWithProgress(CUSharedPtr<CUStringMac> source,
                                  CUSharedPtr<CUStringMac> destination, _CopyProgress_Info* info,
                                  bool overwrite) {
  return CUSharedPtr<CUFileInfo>(new CUFileInfo(source))
      ->MoveWithProgress(destination, info, overwrite);
}
