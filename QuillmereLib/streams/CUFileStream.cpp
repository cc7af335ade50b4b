#include "QuillmereLib/streams/CUFileStream.h"

#include <CoreServices/CoreServices.h>

#include "QuillmereLib/core/ThrowErrorCode.h"

CUFileStream::CUFileStream(CUStringMac* path, CUStream_FileMode mode, CUStream_FileAccess access,
                           bool noThrowOnOpenFailure) {
  ClearMemberValue();
  try {
    Init(path, mode, access);
  } catch (unsigned int&) {
    if (!noThrowOnOpenFailure) throw;
  }
}

CUFileStream::CUFileStream(CUSharedPtr<CUStringMac>& path, CUStream_FileMode mode,
                           CUStream_FileAccess access, bool noThrowOnOpenFailure)
    : CUFileStream(path.Get(), mode, access, noThrowOnOpenFailure) {}

CUFileStream::~CUFileStream() {
  try {
    Close();
  } catch (...) {
  }
}

void CUFileStream::Close() {
  CUAutoLock const guard(streamLock);
  z_CloseNoLock();
}

void CUFileStream::z_CloseNoLock() {
  if (!handleValid) return;
  FSCloseFork(forkRef);
  handleValid = false;
  forkRef = 0;
}

unsigned long long CUFileStream::Length() {
  CUAutoLock const guard(streamLock);
  return streamLength;
}

void CUFileStream::SetLength(unsigned long long length) {
  CUAutoLock const guard(streamLock);
  try {
    if (!CanSeek() || !CanWrite()) ThrowErrorCode(CUError_NotSupported);
    CheackFileOpened();
    z_SetLength(length);
  } catch (unsigned int&) {
    Close();
  }
}

unsigned long long CUFileStream::Position() {
  CUAutoLock const guard(streamLock);
  try {
    if (!CanSeek()) ThrowErrorCode(CUError_NotSupported);
    CheackFileOpened();
  } catch (unsigned int&) {
    Close();
  }
  return streamPosition;
}

void CUFileStream::SetPosition(unsigned long long position) {
  CUAutoLock const guard(streamLock);
  Seek(static_cast<long long>(position), CUStream_Seek_Origin_Begin);
}

unsigned long long CUFileStream::Read(unsigned char* buffer, unsigned long long size,
                                      long long offset, CUStream_Seek_Origin origin) {
  CUAutoLock const guard(streamLock);
  try {
    if (buffer == nullptr) ThrowErrorCode(CUError_NullArgument);
    CheackFileOpened();
    if (!CanRead()) ThrowErrorCode(CUError_NotSupported);
    _CURange range = CalcReadRange(size, offset, origin);
    if (range.length == 0) return 0;
    if (osPosition != range.location) SeekOSFileHandle(range.location);
    return z_Read(buffer, range);
  } catch (unsigned int&) {
    return 0;
  }
}

unsigned long long CUFileStream::Write(unsigned char* buffer, unsigned long long size,
                                       long long offset, CUStream_Seek_Origin origin) {
  CUAutoLock const guard(streamLock);
  try {
    if (buffer == nullptr) ThrowErrorCode(CUError_NullArgument);
    CheackFileOpened();
    if (!CanWrite()) ThrowErrorCode(CUError_NotSupported);
    auto const target = static_cast<unsigned long long>(CalcNewPos(offset, origin));
    if (Length() < target + size) SetLength(target + size);
    if (osPosition != target) SeekOSFileHandle(target);
    return z_Write(buffer, size);
  } catch (unsigned int&) {
    return 0;
  }
}

long long CUFileStream::Seek(long long offset, CUStream_Seek_Origin origin) {
  CUAutoLock const guard(streamLock);
  try {
    CheackFileOpened();
    if (!CanSeek()) ThrowErrorCode(CUError_NotSupported);
    streamPosition = static_cast<unsigned long long>(CalcNewPos(offset, origin));
  } catch (unsigned int&) {
    Close();
  }
  return static_cast<long long>(streamPosition);
}

CUFileStream& CUFileStream::operator=(CUFileStream const& other) {
  CUStream::operator=(other);
  return *this;
}

void CUFileStream::CheackFileOpened() {
  if (!handleValid) ThrowErrorCode(CUError_InvalidArgument);
}

void CUFileStream::SeekOSFileHandle(unsigned long long position) {
  if (FSSetForkPosition(forkRef, fsFromStart, static_cast<SInt64>(position)) != noErr) {
    ThrowErrorCode(CUError_IOFailure);
  }
  osPosition = position;
}

unsigned long long CUFileStream::z_Read(unsigned char* buffer, _CURange& range) {
  ByteCount actualCount = 0;
  OSErr const status = FSReadFork(forkRef, fsFromStart, static_cast<SInt64>(range.location),
                                  range.length, buffer, &actualCount);
  if (status != noErr && status != eofErr) ThrowErrorCode(CUError_IOFailure);
  // By the count asked for, also where the fork ended first: the next transfer elsewhere seeks.
  osPosition += range.length;
  streamPosition = osPosition;
  return actualCount;
}

unsigned long long CUFileStream::z_Write(unsigned char* buffer, unsigned long long size) {
  ByteCount actualCount = 0;
  OSErr const status = FSWriteFork(forkRef, fsAtMark, 0, size, buffer, &actualCount);
  // Also what a failure left of the write has moved the mark.
  osPosition += actualCount;
  if (status != noErr || actualCount != size) ThrowErrorCode(CUError_IOFailure);
  streamPosition = osPosition;
  return size;
}

void CUFileStream::z_SetLength(unsigned long long length) {
  if (FSSetForkSize(forkRef, fsFromStart, static_cast<SInt64>(length)) != noErr) {
    ThrowErrorCode(CUError_IOFailure);
  }
  SInt64 mark = 0;
  if (FSGetForkPosition(forkRef, &mark) != noErr) ThrowErrorCode(CUError_IOFailure);
  osPosition = static_cast<unsigned long long>(mark);
  streamLength = length;
  ResetReadaleRange();
}

// In unsigned numbers, as a sum past the greatest signed one is taken as it falls.
long long CUFileStream::CalcNewPos(long long offset, CUStream_Seek_Origin origin) {
  auto position = static_cast<unsigned long long>(offset);
  switch (origin) {
    case CUStream_Seek_Origin_Begin:
      break;
    case CUStream_Seek_Origin_Current:
      position += streamPosition;
      break;
    case CUStream_Seek_Origin_End:
      position += Length();
      break;
    default:
      position = 0;
  }
  return static_cast<long long>(position);
}

unsigned short CUFileStream::CUStream_Seek_Origin_To_OS_Seek_Origin(CUStream_Seek_Origin origin) {
  switch (origin) {
    case CUStream_Seek_Origin_Begin:
      return fsFromStart;
    case CUStream_Seek_Origin_Current:
      return fsFromMark;
    case CUStream_Seek_Origin_End:
      return fsFromLEOF;
    default:
      return fsAtMark;
  }
}
