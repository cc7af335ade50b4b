#pragma once

// The copying and moving of one file, whole or not at all, by calls that return when it is over.

#include <CoreFoundation/CFBase.h>

#include <optional>
#include <string>

#include "platform/linux/PartialFile.h"

struct FileTask {
  std::string source;  // absolute, as is the folder
  std::string folder;
  std::string name;
  bool overwrite = false;
  bool isMove = false;
  CopyMeans means = {};
};

// What a copy asks and tells on its way, on its own thread.
class CopyObserver {
 public:
  // Whether to go on, after each piece. `completed` never goes back.
  virtual bool Continues(UInt64 total, UInt64 completed) = 0;

  // Whether the file, complete now, may take its name.
  virtual bool Approves(UInt64 total) = 0;

 protected:
  ~CopyObserver() = default;
};

// Copies, and for a move deletes the source then. The status is noErr, what the observer refused
// (userCanceledErr), or the failure, after which all is as it was. The calling thread blocks
// SIGXFSZ, so that a limited file size is a failure and not the end of the process.
OSStatus CopyFile(FileTask const& task, CopyObserver* observer);

// The size of the source where it is a file or a link that one rename can move, having to stay
// within its volume; else nothing, also where that cannot be told.
std::optional<UInt64> SizeToRename(FileTask const& task);

// Moves within a volume. Nothing where the volume wants a copy after all; else as CopyFile.
std::optional<OSStatus> RenameFile(FileTask const& task);
