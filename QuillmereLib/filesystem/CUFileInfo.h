#pragma once

// CUFileInfo, a file known by its path: it deletes, measures, copies and moves.

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUResult.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/filesystem/CUFileSysytemInfo.h"

class CUFileInfo;
struct __CFDictionary;
struct __FSFileOperation;

// How a copy or move tells of itself. The caller owns it and keeps it alive for the call.
struct _CopyProgress_Info {
  // Called on the calling thread, at most every 0.1 seconds and once at the end, with sizes in
  // bytes; false stops the work. Must not be null, and must not throw: the system's run loop calls
  // it. Never called for an empty file.
  bool (*progressCallback)(unsigned long long total, unsigned long long completed,
                           void* clientData);
  void* clientData;   // passed back untouched
  CUFileInfo* owner;  // set by the operation itself: begin with null
};

class QUILLMERE_API CUFileInfo : public CUFileSysytemInfo {
 public:
  CUFileInfo(CUStringMac& path);
  CUFileInfo(CUSharedPtr<CUStringMac> path);

  // Deletes the file, or the symbolic link itself. A missing file is no error. Throws error code 7
  // for a directory and 8 where the system refuses.
  virtual void Delete();

  // Copy or move the file to the full path `destination`, turning this thread's run loop until it
  // is over. The destination appears whole or not at all; an old one survives every failure and
  // every stop, but for a move between volumes that cannot delete its source, where the volume
  // cannot swap names: both files are there then, the old one is not. Throw, before anything is
  // begun: error code 2 for a null `info` or destination, 1 for an empty path, 9 for a source that
  // is no readable file, 4 for a readable destination without `overwrite`. Return 0 when done and
  // when stopped by the callback, 0x10001 for a destination without a folder or a name, 0x10002
  // where the work could not be set up, 0x10003 for a failed copy and 0x10004 for a failed move.
  // One operation at a time an object.
  virtual CUResult CopyWithProgress(CUSharedPtr<CUStringMac> destination, _CopyProgress_Info* info,
                                    bool overwrite);
  virtual CUResult MoveWithProgress(CUSharedPtr<CUStringMac> destination, _CopyProgress_Info* info,
                                    bool overwrite);

  // Bytes; 0 on any failure.
  virtual unsigned long long Length();

  // CUFile::Exists of the path.
  virtual bool Exists();

  // The work behind copy and move, and the checks before it.
  virtual CUResult z_CopyMoveWithProgress(CUSharedPtr<CUStringMac> destination,
                                          _CopyProgress_Info* info, bool overwrite, bool isCopy);
  virtual void z_CopyMoveWithProgressErrorCheack(CUSharedPtr<CUStringMac> destination,
                                                 _CopyProgress_Info* info, bool overwrite,
                                                 bool isCopy);

  // Looks up to `attempts` times, 0.1 seconds apart, whether `path` has ceased to exist. With 0
  // attempts false without a look. Never throws.
  virtual bool z_WaitFileNotExist(CUSharedPtr<CUStringMac> path, unsigned int attempts);

  // What the platform calls as a copy or move goes on; `info` is a _CopyProgress_Info*.
  static void CopyProgressRoutineMac(__FSFileOperation* operation, char const* currentItem,
                                     unsigned int stage, int error, __CFDictionary const* status,
                                     void* info);

 private:
  // The channel between the callback and the waiting loop, on one thread.
  bool progressCancelled;
  bool progressFinished;
  bool progressFailed;
};
