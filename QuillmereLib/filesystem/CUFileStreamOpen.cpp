// How a CUFileStream opens its file. Declared with the class in streams/, and defined on this
// floor, since it asks whether the path is a file or a directory.

#include <CoreServices/CoreServices.h>

#include "QuillmereLib/core/ThrowErrorCode.h"
#include "QuillmereLib/filesystem/PathRef.h"
#include "QuillmereLib/streams/CUFileStream.h"

void CUFileStream::ClearMemberValue() {
  readAllowed = false;
  writeAllowed = false;
  seekAllowed = false;
  handleValid = false;
  forkRef = 0;
  osPosition = 0;
}

void CUFileStream::Init(CUStringMac* path, CUStream_FileMode mode, CUStream_FileAccess access) {
  ClearMemberValue();
  if (path == nullptr) ThrowErrorCode(CUError_NullArgument);
  if (path->Length() == 0) ThrowErrorCode(CUError_InvalidArgument);
  // One look tells what CUDirectory::Exists and CUFile::Exists do.
  FSRef ref;
  Boolean isDirectory = false;
  bool const fileExists = MakeRef(*path, &ref, &isDirectory);
  if (isDirectory) ThrowErrorCode(CUError_NotSupported);
  bool const readOnly = access == CUStream_FileAccess_Read;
  switch (mode) {
    case CUStream_FileMode_Append:
    case CUStream_FileMode_Create:
      if (readOnly) ThrowErrorCode(CUError_IOFailure);
      break;
    case CUStream_FileMode_CreateNew:
      if (fileExists) ThrowErrorCode(CUError_IOFailure);
      break;
    case CUStream_FileMode_Open:
      if (!fileExists) ThrowErrorCode(CUError_FileNotFound);
      break;
    case CUStream_FileMode_OpenOrCreate:
      break;
    case CUStream_FileMode_Truncate:
      if (readOnly) ThrowErrorCode(CUError_IOFailure);
      if (!fileExists) ThrowErrorCode(CUError_FileNotFound);
      break;
  }
  OpenOSFileHandle(path, mode, access, fileExists);
}

void CUFileStream::OpenOSFileHandle(CUStringMac* path, CUStream_FileMode mode,
                                    CUStream_FileAccess access, bool fileExists) {
  signed char const permission = CUStream_FileAccess_To_OS_FileAccess(access);
  bool opened = false;
  switch (mode) {
    case CUStream_FileMode_Append:
    case CUStream_FileMode_OpenOrCreate:
      opened = fileExists ? OpenExistFileRefAndDataFork(path, false, permission)
                          : OpenNewFileRefAndDataFork(path, permission);
      break;
    case CUStream_FileMode_Create:
      opened = fileExists ? OpenExistFileRefAndDataFork(path, true, permission)
                          : OpenNewFileRefAndDataFork(path, permission);
      break;
    case CUStream_FileMode_CreateNew:
      opened = !fileExists && OpenNewFileRefAndDataFork(path, permission);
      break;
    case CUStream_FileMode_Open:
      opened = fileExists && OpenExistFileRefAndDataFork(path, false, permission);
      break;
    case CUStream_FileMode_Truncate:
      opened = fileExists && OpenExistFileRefAndDataFork(path, true, permission);
      break;
  }
  if (!opened) ThrowErrorCode(CUError_IOFailure);

  readAllowed = access < CUStream_FileAccess_Write;
  writeAllowed = access == CUStream_FileAccess_ReadWrite || access == CUStream_FileAccess_Write;
  seekAllowed = true;

  SInt64 size = 0;
  if (FSGetForkSize(forkRef, &size) != noErr) {
    z_CloseNoLock();
    ThrowErrorCode(CUError_IOFailure);
  }
  streamLength = static_cast<unsigned long long>(size);
  if (mode == CUStream_FileMode_Append) Seek(0, CUStream_Seek_Origin_End);
  // Not by SetReadaleRange, which a stream that only writes refuses.
  readableRange = {0, streamLength};
}

bool CUFileStream::OpenExistFileRefAndDataFork(CUStringMac* path, bool truncate,
                                               signed char permission) {
  if (path == nullptr) return false;
  FSRef ref;
  if (!MakeRef(*path, &ref)) return false;
  return OpenDataFork(&ref, truncate, permission);
}

bool CUFileStream::OpenNewFileRefAndDataFork(CUStringMac* path, signed char permission) {
  if (path == nullptr) return false;
  CUStringMac folder;
  CUSharedPtr<CUStringMac> const name = new CUStringMac;
  if (path->PathRemoveLastComponent(folder) != CUResult_Success ||
      path->PathGetFileName(*name) != CUResult_Success) {
    return false;
  }

  FSRef folderRef;
  Boolean isDirectory = false;
  if (!MakeRef(folder, &folderRef, &isDirectory) || isDirectory != 1) return false;

  HFSUniStr255 fileName = {};
  if (CUStringMac::GetUnicodeFileName(name, &fileName) != CUResult_Success) return false;
  FSRef fileRef;
  if (FSCreateFileUnicode(&folderRef, fileName.length, fileName.unicode, kFSCatInfoNone, nullptr,
                          &fileRef, nullptr) != noErr) {
    return false;
  }
  return OpenDataFork(&fileRef, false, permission);
}

bool CUFileStream::OpenDataFork(FSRef* ref, bool truncate, signed char permission) {
  if (ref == nullptr) return false;
  HFSUniStr255 forkName;
  if (FSGetDataForkName(&forkName) != noErr) return false;
  if (FSOpenFork(ref, forkName.length, forkName.unicode, permission, &forkRef) != noErr) {
    return false;
  }
  handleValid = true;
  return !truncate || FSSetForkSize(forkRef, fsFromStart, 0) == noErr;
}

signed char CUFileStream::CUStream_FileAccess_To_OS_FileAccess(CUStream_FileAccess access) {
  switch (access) {
    case CUStream_FileAccess_Read:
      return fsRdPerm;
    case CUStream_FileAccess_ReadWrite:
      return fsRdWrPerm;
    case CUStream_FileAccess_Write:
      return fsWrPerm;
  }
  return fsCurPerm;
}
