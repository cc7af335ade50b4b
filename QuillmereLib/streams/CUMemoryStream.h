#pragma once

// CUMemoryStream, a read-only stream over one block of memory: also the way to take a slice of
// another stream into memory.

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/streams/CUStream.h"

// Reads do not move the position, which stays 0: read in portions by giving each its offset. Where
// an allocation fails, the stream stays empty (CanRead is false) and nothing is thrown, unless told
// otherwise.
class QUILLMERE_API CUMemoryStream : public CUStream {
 public:
  // An empty stream, without a block.
  CUMemoryStream();

  // A block of `size` bytes that are not cleared; fill it through GetPtr.
  explicit CUMemoryStream(unsigned long long size);

  // The `size` bytes at `data`: in place, when the caller keeps them alive for as long as the
  // stream lives, or as a copy. Null data gives an empty stream.
  CUMemoryStream(void* data, unsigned long long size, bool useWithoutCopy);

  // The bytes of `range` in `source`, which the stream does not keep. They begin at offset 0 here.
  // Throws error code 1 typed as `_CUErrorContents` when the source is null or does not give them
  // all, within its own readable range, and for a range of length 0.
  CUMemoryStream(CUStream* source, _CURange& range);
  CUMemoryStream(CUSharedPtr<CUStream> source, _CURange& range);

  ~CUMemoryStream() override;

  // The same, with null for every failure, out of memory too. The raw result is not yet held by any
  // pointer, and is the caller's.
  static CUMemoryStream* CreateMemoryStream(CUStream* source, _CURange& range);
  static CUMemoryStream* CreateMemoryStream(CUSharedPtr<CUStream> source, _CURange& range);
  static CUSharedPtr<CUMemoryStream> CreateMemoryStreamPtr(CUStream* source, _CURange& range);
  static CUSharedPtr<CUMemoryStream> CreateMemoryStreamPtr(CUSharedPtr<CUStream> source,
                                                           _CURange& range);

  // Takes a new block as the constructor of that form does. A block held before is not freed: call
  // UnInit first. The first returns the block or null, the second the bytes read.
  void* InitByMemorySize(unsigned long long size);
  unsigned long long InitByStreamAndRange(CUStream* source, _CURange& range);

  // Frees a block of the stream's own; one that is the caller's stays in place.
  void UnInit();

  // Resets as CUStream does, and leaves the block alone.
  CUMemoryStream& operator=(CUMemoryStream const& other);
  using CUStream::operator=;

  bool CanRead() override;

  // 0 outside the readable range, and for a null buffer.
  unsigned long long Read(unsigned char* buffer, unsigned long long size, long long offset,
                          CUStream_Seek_Origin origin) override;

  // The block, lent, or null; without the lock. It may be written through.
  void* GetPtr() { return memoryBuffer; }

 private:
  unsigned char* memoryBuffer;
  bool ownsBuffer;  // the block came from malloc and is freed by this stream
};
