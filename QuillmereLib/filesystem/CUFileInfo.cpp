#include "QuillmereLib/filesystem/CUFileInfo.h"

#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>

#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/core/CUThread.h"
#include "QuillmereLib/core/ThrowErrorCode.h"
#include "QuillmereLib/filesystem/CUFile.h"
#include "QuillmereLib/filesystem/PathRef.h"

// Copying and moving are defined in CUFileInfoCopy.cpp.

CUFileInfo::CUFileInfo(CUStringMac& path)
    : CUFileSysytemInfo(path),
      progressCancelled(false),
      progressFinished(false),
      progressFailed(false) {}

CUFileInfo::CUFileInfo(CUSharedPtr<CUStringMac> path)
    : CUFileSysytemInfo(path),
      progressCancelled(false),
      progressFinished(false),
      progressFailed(false) {}

void CUFileInfo::Delete() {
  FSRef ref;
  Boolean isDirectory = false;
  if (ResolvePath(fullName, kFSPathMakeRefDoNotFollowLeafSymlink, &ref, &isDirectory) != noErr) {
    return;
  }
  if (isDirectory) ThrowErrorCode(CUError_PathIsDirectory);
  // An entry that has gone meanwhile is deleted too.
  OSErr const status = FSDeleteObject(&ref);
  if (status != noErr && status != fnfErr) ThrowErrorCode(CUError_DeleteFailed);
}

unsigned long long CUFileInfo::Length() {
  CFStringRef const path = fullName;
  CFHolder<CFURLRef> const url(
      CFURLCreateWithFileSystemPath(kCFAllocatorDefault, path, kCFURLPOSIXPathStyle, false));
  FSRef ref;
  FSCatalogInfo info;
  if (!url || !CFURLGetFSRef(url.Get(), &ref) ||
      FSGetCatalogInfo(&ref, kFSCatInfoDataSizes, &info, nullptr, nullptr, nullptr) != noErr) {
    return 0;
  }
  return info.dataLogicalSize;
}

bool CUFileInfo::Exists() { return CUFile::Exists(&fullName); }

bool CUFileInfo::z_WaitFileNotExist(CUSharedPtr<CUStringMac> path, unsigned int attempts) {
  bool isGone = false;
  try {
    CUFileInfo file(path);
    for (unsigned int attempt = 0; attempt < attempts; ++attempt) {
      isGone = !file.Exists();
      if (isGone) break;
      CUSleep(100);
    }
  } catch (...) {
  }
  return isGone;
}
