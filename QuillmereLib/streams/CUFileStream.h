#pragma once

// CUFileStream, the stream over the bytes of one file.

#include <atomic>

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/streams/CUStream.h"
#include "QuillmereLib/strings/CUStringMac.h"

struct FSRef;

// What an opening does with a file that exists or does not. Modes that change or may create the
// file as a rule refuse CUStream_FileAccess_Read.
enum CUStream_FileMode : unsigned int {
  CUStream_FileMode_Append = 0,        // open or create; the position is the end
  CUStream_FileMode_Create = 1,        // open and cut to length 0, or create
  CUStream_FileMode_CreateNew = 2,     // create; the file must not exist (any access)
  CUStream_FileMode_Open = 3,          // open; the file must exist (any access)
  CUStream_FileMode_OpenOrCreate = 4,  // open or create (any access)
  CUStream_FileMode_Truncate = 5       // open and cut to length 0; the file must exist
};

// The order decides: below Write may read, above Read may write.
enum CUStream_FileAccess : unsigned int {
  CUStream_FileAccess_Read = 0,
  CUStream_FileAccess_ReadWrite = 1,
  CUStream_FileAccess_Write = 2
};

// Opened once, by the constructor; closed by Close, the destructor, or a Seek, Position or
// SetLength that fails. Only the constructor throws: a failed transfer is a count of 0, and the
// stream stays open; a failed resize closes it. Two positions are kept, the stream's and the
// system's, and meet only when a transfer needs it, so that Seek and Length cost no system call.
// The length is what this stream made of it: changes of others go unseen.
//
// Every operation but CanRead, CanWrite, CanSeek and IsOSFileHandleValid holds the stream's lock
// from entry to end; any thread may call any of them.
class QUILLMERE_API CUFileStream : public CUStream {
 public:
  // Opens `path`. Throws, as `unsigned int`, error code 2 for a null path, 1 for an empty one, 5
  // for a directory, 9 for a missing file that must exist, 4 for every other refusal of mode,
  // access or system, such as a new file by a bare name, where "./name" is needed. With
  // `noThrowOnOpenFailure` these leave a closed stream instead. The form by CUSharedPtr takes a
  // variable of this very type, since a reference without const binds to nothing else; it keeps
  // nothing of it.
  CUFileStream(CUStringMac* path, CUStream_FileMode mode, CUStream_FileAccess access,
               bool noThrowOnOpenFailure);
  CUFileStream(CUSharedPtr<CUStringMac>& path, CUStream_FileMode mode, CUStream_FileAccess access,
               bool noThrowOnOpenFailure);
  ~CUFileStream() override;

  // Does nothing on a closed stream.
  void Close();

  bool CanRead() override { return readAllowed && handleValid; }
  bool CanWrite() override { return writeAllowed && handleValid; }
  bool CanSeek() override { return seekAllowed && handleValid; }
  bool IsOSFileHandleValid() { return handleValid; }

  unsigned long long Length();

  // Cuts or grows the file, and lets reads touch the whole of it. A failure closes the stream.
  void SetLength(unsigned long long length);

  // The stream's position. A closed stream gives the last one.
  unsigned long long Position();
  void SetPosition(unsigned long long position);

  // Moves the position behind what was asked for, cut off at the readable range. 0 on failure.
  unsigned long long Read(unsigned char* buffer, unsigned long long size, long long offset,
                          CUStream_Seek_Origin origin) override;

  // A write that ends behind the length first grows the file to its new length, which also resets
  // the readable range. Moves the position behind what was written. 0 on failure.
  unsigned long long Write(unsigned char* buffer, unsigned long long size, long long offset,
                           CUStream_Seek_Origin origin) override;

  // Any position is taken as it is, far behind the end or before the start; transfers judge it.
  long long Seek(long long offset, CUStream_Seek_Origin origin) override;

  // Resets as CUStream does, and leaves the open file alone.
  CUFileStream& operator=(CUFileStream const& other);
  using CUStream::operator=;

 protected:
  // Opening: defined in filesystem/CUFileStreamOpen.cpp, since it asks the existence tests there.
  void Init(CUStringMac* path, CUStream_FileMode mode, CUStream_FileAccess access);
  void ClearMemberValue();
  void OpenOSFileHandle(CUStringMac* path, CUStream_FileMode mode, CUStream_FileAccess access,
                        bool fileExists);
  bool OpenExistFileRefAndDataFork(CUStringMac* path, bool truncate, signed char permission);
  bool OpenNewFileRefAndDataFork(CUStringMac* path, signed char permission);
  // A cut that fails leaves the fork open, and the handle valid.
  bool OpenDataFork(FSRef* ref, bool truncate, signed char permission);
  signed char CUStream_FileAccess_To_OS_FileAccess(CUStream_FileAccess access);

  // Transfers, with the checks made and the lock held by the caller. They throw error codes.
  void CheackFileOpened();
  void SeekOSFileHandle(unsigned long long position);
  unsigned long long z_Read(unsigned char* buffer, _CURange& range);
  unsigned long long z_Write(unsigned char* buffer, unsigned long long size);
  void z_SetLength(unsigned long long length);
  void z_CloseNoLock();
  int ForkRef() const { return forkRef; }  // 0 when closed
  long long CalcNewPos(long long offset, CUStream_Seek_Origin origin);
  unsigned short CUStream_Seek_Origin_To_OS_Seek_Origin(CUStream_Seek_Origin origin);

 private:
  bool readAllowed;
  bool writeAllowed;
  bool seekAllowed;
  std::atomic<bool> handleValid;  // read without the lock
  int forkRef;                    // 0 when closed
  unsigned long long osPosition;  // where the fork's mark stands, as far as the stream knows
};
