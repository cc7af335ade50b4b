#pragma once

// CUDirectoryInfo, a directory known by its path: it creates, lists and deletes itself.

#include "QuillmereLib/collections/CUArray.h"
#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/filesystem/CUFileSysytemInfo.h"

// Error codes are thrown as `unsigned int`. A deletion never follows a symbolic link.
class QUILLMERE_API CUDirectoryInfo : public CUFileSysytemInfo {
 public:
  CUDirectoryInfo(CUStringMac& path);
  CUDirectoryInfo(CUSharedPtr<CUStringMac> path);

  // Makes the directory and its missing ancestors; one that exists is no failure. Throws error code
  // 4 where a level cannot be made; those made before stay. A bare name cannot: write "./reels".
  virtual void Create();

  // Deletes the directory, which must be empty, or the link to one. Throws error code 3 where it is
  // missing or no directory, 4 where the system refuses.
  virtual void Delete();

  // With `recursive` deletes the contents first: each subdirectory with its tree, then the files.
  // The first refusal ends it with that entry's error code; a missing directory is error code 4
  // here.
  virtual void Delete(bool recursive);

  // Moves the directory to the user's trash, turning this thread's run loop until it is over.
  // Throws error code 3 where it is missing and 4 where the service fails; a user who declines is
  // no failure.
  virtual void Recycle();

  // The entries as CUDirectoryInfo or CUFileInfo with full paths, in the file system's order. What
  // is no directory is a file here, a symbolic link always. Throw error code 4 where the directory
  // is missing or none; a listing that breaks off gives what it has.
  virtual CUSharedPtr<CUArray> GetDirectories();
  virtual CUSharedPtr<CUArray> GetFiles();
  virtual CUSharedPtr<CUArray> GetObjects(bool wantDirectories);

  // Deletes every entry of `objects`, which GetObjects made for `areDirectories`.
  virtual void DeleteSubObjects(CUSharedPtr<CUArray> objects, bool areDirectories);

  // Makes one level; true if the directory exists then.
  static bool CreateDirectory(CUSharedPtr<CUStringMac> path);
};
