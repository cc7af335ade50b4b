#pragma once

// CUStream, the contract of every reader and writer of bytes.

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CULock.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CURange.h"
#include "QuillmereLib/core/CUResult.h"
#include "QuillmereLib/core/CUSharedPtr.h"

struct __CFData;

// What an offset counts from.
enum CUStream_Seek_Origin : unsigned int {
  CUStream_Seek_Origin_Begin = 0,
  CUStream_Seek_Origin_Current = 1,  // the position
  CUStream_Seek_Origin_End = 2       // the length
};

// A length, a logical position, a recursive lock of its own and a readable range, behind operations
// that this class refuses with error code 5 (CUError_NotSupported, as `unsigned int`).
//
// The readable range bounds every read and nothing else: whoever reads a stream gets of a request
// the part inside the range, and nothing if the request begins outside. Narrow it before you hand a
// stream to code that should see only a slice.
//
// A transfer says where it happens and is atomic under the stream's lock. The operations that are
// not virtual are hidden by derived classes: through a `CUStream*` the forms told here are called.
class QUILLMERE_API CUStream : public CUObject {
 public:
  CUStream();
  CUStream(CUStream const&) = delete;
  ~CUStream() override;

  virtual bool CanRead();
  virtual bool CanWrite();
  virtual bool CanSeek();

  // Moves up to `size` bytes at `offset` from `origin`, and returns how many. An unknown origin
  // makes a Read empty; elsewhere it counts as place 0.
  virtual unsigned long long Read(unsigned char* buffer, unsigned long long size, long long offset,
                                  CUStream_Seek_Origin origin);
  virtual unsigned long long Write(unsigned char* buffer, unsigned long long size, long long offset,
                                   CUStream_Seek_Origin origin);

  // Sets the position and returns it.
  virtual long long Seek(long long offset, CUStream_Seek_Origin origin);

  // Writes the bytes of a platform data object; 0 for null. Takes the lock.
  virtual unsigned long long WriteCFData(__CFData const* data, long long offset,
                                         CUStream_Seek_Origin origin);

  // Copies nothing and resets this stream: length, position and range become 0, and the lock goes,
  // so that it works on without mutual exclusion.
  virtual CUStream& operator=(CUStream const& other);
  using CUObject::operator=;

  // The length in bytes, without the lock.
  unsigned long long Length() { return streamLength; }

  // Both throw error code 5.
  void SetLength(unsigned long long length);
  unsigned long long Position();

  // The virtual Seek from the beginning.
  void SetPosition(unsigned long long position);

  // Lets reads touch `range` only. Fails, with the old range kept, when the stream cannot read, the
  // location is CURange_NoLocation, or the range's end (which may wrap) lies behind the length. A
  // range of length 0 closes the stream to reading.
  CUResult SetReadaleRange(_CURange const& range);

  // Lets reads touch the whole stream. Does nothing on a stream that cannot read.
  void ResetReadaleRange();

  // What a read of `size` bytes may touch: the request, cut off at the far end of the readable
  // range; {0, 0} if nothing. Takes no lock and changes nothing.
  _CURange CalcReadRange(unsigned long long size, long long offset, CUStream_Seek_Origin origin);

 protected:
  _CURange readableRange;
  unsigned long long streamLength;
  unsigned long long streamPosition;
  CUSharedPtr<CULockAbstract> streamLock;
};
