#include "QuillmereLib/streams/CUStream.h"

#include <CoreFoundation/CoreFoundation.h>

#include "QuillmereLib/core/ThrowErrorCode.h"

CUStream::CUStream()
    : readableRange{0, 0}, streamLength(0), streamPosition(0), streamLock(new CURecursiveLock) {}

CUStream::~CUStream() = default;

bool CUStream::CanRead() { return false; }

bool CUStream::CanWrite() { return false; }

bool CUStream::CanSeek() { return false; }

unsigned long long CUStream::Read(unsigned char*, unsigned long long, long long,
                                  CUStream_Seek_Origin) {
  ThrowErrorCode(CUError_NotSupported);
}

unsigned long long CUStream::Write(unsigned char*, unsigned long long, long long,
                                   CUStream_Seek_Origin) {
  ThrowErrorCode(CUError_NotSupported);
}

long long CUStream::Seek(long long, CUStream_Seek_Origin) { ThrowErrorCode(CUError_NotSupported); }

unsigned long long CUStream::WriteCFData(__CFData const* data, long long offset,
                                         CUStream_Seek_Origin origin) {
  CUAutoLock const guard(streamLock);
  if (data == nullptr) return 0;
  UInt8 const* const bytes = CFDataGetBytePtr(data);
  if (bytes == nullptr) return 0;
  // Write takes its buffer as not const, and only reads it.
  return Write(const_cast<unsigned char*>(bytes),
               static_cast<unsigned long long>(CFDataGetLength(data)), offset, origin);
}

CUStream& CUStream::operator=(CUStream const& other) {
  CUObject::operator=(other);
  readableRange = {0, 0};
  streamLength = 0;
  streamPosition = 0;
  streamLock = CUSharedPtr<CULockAbstract>();
  return *this;
}

void CUStream::SetLength(unsigned long long) { ThrowErrorCode(CUError_NotSupported); }

unsigned long long CUStream::Position() { ThrowErrorCode(CUError_NotSupported); }

void CUStream::SetPosition(unsigned long long position) {
  Seek(static_cast<long long>(position), CUStream_Seek_Origin_Begin);
}

CUResult CUStream::SetReadaleRange(_CURange const& range) {
  CUAutoLock const guard(streamLock);
  unsigned long long const length = streamLength;
  // The end may wrap past zero and then passes: no read can lie in such a range.
  if (!CanRead() || range.location == CURange_NoLocation ||
      length < range.location + range.length) {
    return CUResult_Failed;
  }
  readableRange = range;
  return CUResult_Success;
}

void CUStream::ResetReadaleRange() {
  CUAutoLock const guard(streamLock);
  SetReadaleRange(_CURange{0, streamLength});
}

_CURange CUStream::CalcReadRange(unsigned long long size, long long offset,
                                 CUStream_Seek_Origin origin) {
  _CURange const nothing = {0, 0};
  if (size == 0) return nothing;

  // Unsigned throughout: a small negative offset wraps back to the place that is meant.
  unsigned long long start = static_cast<unsigned long long>(offset);
  switch (origin) {
    case CUStream_Seek_Origin_Begin:
      break;
    case CUStream_Seek_Origin_Current:
      start += streamPosition;
      break;
    case CUStream_Seek_Origin_End:
      start += streamLength;
      break;
    default:
      return nothing;
  }
  if (start < readableRange.location) return nothing;
  unsigned long long const end = readableRange.location + readableRange.length;
  if (end <= start) return nothing;
  // Compared with what is left, not by the request's end, which might wrap.
  unsigned long long const left = end - start;
  return {start, size < left ? size : left};
}
