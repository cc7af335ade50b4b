#include "QuillmereLib/filesystem/CUFileSysytemInfo.h"

#include <CoreServices/CoreServices.h>

#include "QuillmereLib/core/ThrowErrorCode.h"
#include "QuillmereLib/filesystem/PathRef.h"

namespace {

constexpr TextEncoding kNoHint = 0xFFFF;

}  // namespace

CUFileSysytemInfo::CUFileSysytemInfo(CUStringMac& path) : fullName(path) {
  if (fullName.Length() == 0) ThrowErrorCode(CUError_InvalidArgument);
}

CUFileSysytemInfo::CUFileSysytemInfo(CUSharedPtr<CUStringMac> path) : fullName(path) {
  if (path == nullptr) ThrowErrorCode(CUError_NullArgument);
  if (fullName.Length() == 0) ThrowErrorCode(CUError_InvalidArgument);
}

CUSharedPtr<CUStringMac> CUFileSysytemInfo::Description() {
  return new CUStringMac(*CUObject::Description() + fullName);
}

CUSharedPtr<CUStringMac> CUFileSysytemInfo::GetFullName() { return new CUStringMac(fullName); }

void CUFileSysytemInfo::Rename(CUSharedPtr<CUStringMac> newName) {
  if (newName == nullptr) ThrowErrorCode(CUError_NullArgument);
  if (newName->Length() == 0) ThrowErrorCode(CUError_InvalidArgument);
  CUStringMac folder;
  CUStringMac newFullName;
  if (CUFailed(fullName.PathRemoveLastComponent(folder)) ||
      CUFailed(folder.PathAppend(*newName, newFullName))) {
    return;
  }

  FSRef ref;
  if (ResolvePath(fullName, kFSPathMakeRefDoNotFollowLeafSymlink, &ref) != noErr) {
    ThrowErrorCode(CUError_IOFailure);
  }
  HFSUniStr255 name = {};
  if (CUStringMac::GetUnicodeFileName(newName, &name) != CUResult_Success) return;
  if (FSRenameUnicode(&ref, name.length, name.unicode, kNoHint, nullptr) != noErr) {
    ThrowErrorCode(CUError_IOFailure);
  }
  fullName = newFullName;
}
