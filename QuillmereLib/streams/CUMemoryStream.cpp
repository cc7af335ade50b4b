#include "QuillmereLib/streams/CUMemoryStream.h"

#include <cstdlib>
#include <cstring>

#include "QuillmereLib/core/CUErrorContents.h"

CUMemoryStream::CUMemoryStream() : memoryBuffer(nullptr), ownsBuffer(false) {}

CUMemoryStream::CUMemoryStream(unsigned long long size) : CUMemoryStream() {
  InitByMemorySize(size);
}

CUMemoryStream::CUMemoryStream(void* data, unsigned long long size, bool useWithoutCopy)
    : CUMemoryStream() {
  if (data == nullptr) return;
  if (useWithoutCopy) {
    memoryBuffer = static_cast<unsigned char*>(data);
    streamLength = size;
    readableRange = {0, size};
  } else if (InitByMemorySize(size) != nullptr) {
    std::memcpy(memoryBuffer, data, size);
  }
}

CUMemoryStream::CUMemoryStream(CUStream* source, _CURange& range) : CUMemoryStream() {
  InitByStreamAndRange(source, range);
}

CUMemoryStream::CUMemoryStream(CUSharedPtr<CUStream> source, _CURange& range)
    : CUMemoryStream(source.Get(), range) {}

CUMemoryStream::~CUMemoryStream() { UnInit(); }

CUMemoryStream* CUMemoryStream::CreateMemoryStream(CUStream* source, _CURange& range) {
  try {
    return new CUMemoryStream(source, range);
  } catch (...) {
    return nullptr;
  }
}

CUMemoryStream* CUMemoryStream::CreateMemoryStream(CUSharedPtr<CUStream> source, _CURange& range) {
  return CreateMemoryStream(source.Get(), range);
}

CUSharedPtr<CUMemoryStream> CUMemoryStream::CreateMemoryStreamPtr(CUStream* source,
                                                                  _CURange& range) {
  return CreateMemoryStream(source, range);
}

CUSharedPtr<CUMemoryStream> CUMemoryStream::CreateMemoryStreamPtr(CUSharedPtr<CUStream> source,
                                                                  _CURange& range) {
  return CreateMemoryStream(source.Get(), range);
}

void* CUMemoryStream::InitByMemorySize(unsigned long long size) {
  ownsBuffer = false;
  memoryBuffer = static_cast<unsigned char*>(std::malloc(size));
  if (memoryBuffer != nullptr) {
    streamLength = size;
    ownsBuffer = true;
    readableRange = {0, size};
  }
  return memoryBuffer;
}

// A failed allocation needs no road of its own: no source reads into a null buffer, and the count
// of 0 that it gives is a failure.
unsigned long long CUMemoryStream::InitByStreamAndRange(CUStream* source, _CURange& range) {
  InitByMemorySize(range.length);
  if (source != nullptr && range.length != 0) {
    streamLength = source->Read(memoryBuffer, range.length, static_cast<long long>(range.location),
                                CUStream_Seek_Origin_Begin);
    if (streamLength == range.length) return streamLength;
  }
  UnInit();
  throw CUError_InvalidArgument;
}

void CUMemoryStream::UnInit() {
  if (memoryBuffer == nullptr || !ownsBuffer) return;
  std::free(memoryBuffer);
  memoryBuffer = nullptr;
}

CUMemoryStream& CUMemoryStream::operator=(CUMemoryStream const& other) {
  CUStream::operator=(other);
  return *this;
}

bool CUMemoryStream::CanRead() { return memoryBuffer != nullptr && streamLength != 0; }

unsigned long long CUMemoryStream::Read(unsigned char* buffer, unsigned long long size,
                                        long long offset, CUStream_Seek_Origin origin) {
  CUAutoLock const guard(streamLock);
  if (buffer == nullptr || memoryBuffer == nullptr) return 0;
  _CURange const range = CalcReadRange(size, offset, origin);
  if (range.length == 0) return 0;
  std::memcpy(buffer, memoryBuffer + range.location, range.length);
  return range.length;
}
