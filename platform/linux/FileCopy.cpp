#include "platform/linux/FileCopy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>

#include "platform/linux/Errors.h"
#include "platform/linux/FileBytes.h"

namespace {

struct Source {
  Descriptor file;
  struct stat facts;  // as it was when it was opened
};

bool AreOneFile(struct stat const& first, struct stat const& second) {
  return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

bool IsChanged(struct stat const& before, struct stat const& now) {
  return now.st_size != before.st_size || now.st_mtim.tv_sec != before.st_mtim.tv_sec ||
         now.st_mtim.tv_nsec != before.st_mtim.tv_nsec;
}

// What stands at the destination, if anything, must be for replacing and not the source itself.
OSStatus CheckDestination(FileTask const& task, int folder, char const* name,
                          struct stat const& source) {
  struct stat there;
  if (fstatat(folder, name, &there, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? OSErr{noErr} : StatusFromErrno(errno);
  }
  if (!task.overwrite || AreOneFile(there, source)) return dupFNErr;
  if (S_ISDIR(there.st_mode)) return opWrErr;
  if (!S_ISLNK(there.st_mode) && !S_ISLNK(source.st_mode)) return noErr;
  struct stat from;
  bool const bothLead =
      fstatat(folder, name, &there, 0) == 0 && stat(task.source.c_str(), &from) == 0;
  return bothLead && AreOneFile(there, from) ? dupFNErr : noErr;
}

// Opens a regular file and nothing else. It is looked at first, as opening alone can wake the other
// end of a FIFO.
OSStatus OpenSource(FileTask const& task, Source* source) {
  if (stat(task.source.c_str(), &source->facts) != 0) return StatusFromErrno(errno);
  if (!S_ISREG(source->facts.st_mode)) return opWrErr;
  int const flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | (task.isMove ? O_NOFOLLOW : 0);
  source->file = Descriptor(Uninterrupted([&] { return open(task.source.c_str(), flags); }));
  if (!source->file.IsOpen() || fstat(source->file.Get(), &source->facts) != 0) {
    return StatusFromErrno(errno);
  }
  return S_ISREG(source->facts.st_mode) ? noErr : opWrErr;
}

// Whether all of the source has been there to be read. Some files of the system say that they hold
// no bytes and give some.
OSStatus CheckWhole(Source const& source) {
  struct stat now;
  if (fstat(source.file.Get(), &now) != 0) return StatusFromErrno(errno);
  if (now.st_size < source.facts.st_size) return eofErr;
  char byte;
  if (now.st_size == 0 && pread(source.file.Get(), &byte, 1, 0) != 0) return ioErr;
  return noErr;
}

OSStatus Publish(FileTask const& task, PartialFile* partial) {
  int const error = task.overwrite ? partial->PublishOver(task.isMove) : partial->Publish();
  return error == 0 ? OSErr{noErr} : StatusFromErrno(error);
}

// Deletes the source of a move, if it is still what was copied.
OSStatus DeleteSource(FileTask const& task, struct stat const& copied) {
  struct stat now;
  if (lstat(task.source.c_str(), &now) != 0) return StatusFromErrno(errno);
  if (!AreOneFile(now, copied) || IsChanged(copied, now)) return fBsyErr;
  return unlink(task.source.c_str()) == 0 ? OSErr{noErr} : StatusFromErrno(errno);
}

// The last steps of a copy or move, from a partial file that is complete.
OSStatus Finish(FileTask const& task, struct stat const& source, PartialFile* partial,
                CopyObserver* observer) {
  if (source.st_size > 0 && !observer->Approves(static_cast<UInt64>(source.st_size))) {
    return userCanceledErr;
  }
  OSStatus status = Publish(task, partial);
  if (status == noErr && task.isMove) {
    status = DeleteSource(task, source);
    if (status != noErr) partial->Withdraw();
  }
  return status;
}

OSStatus CopyRegularFile(FileTask const& task, int folder, CopyObserver* observer) {
  Source source;
  OSStatus status = OpenSource(task, &source);
  if (status == noErr) status = CheckDestination(task, folder, task.name.c_str(), source.facts);
  if (status != noErr) return status;

  PartialFile partial(folder, task.name, task.means);
  int const error = partial.Create();
  if (error != 0) return StatusFromErrno(error);
  status = CopyBytes(source.file.Get(), partial.Get(), source.facts, task.means, observer);
  if (status == noErr) {
    status = CopyAttributes(source.file.Get(), partial.Get(), source.facts, task.isMove);
  }
  if (status == noErr) status = CheckWhole(source);
  return status == noErr ? Finish(task, source.facts, &partial, observer) : status;
}

OSStatus MoveLink(FileTask const& task, int folder, struct stat const& link,
                  CopyObserver* observer) {
  OSStatus const status = CheckDestination(task, folder, task.name.c_str(), link);
  if (status != noErr) return status;
  char target[PATH_MAX];
  ssize_t const length = readlink(task.source.c_str(), target, sizeof target - 1);
  if (length < 0) return StatusFromErrno(errno);
  target[length] = '\0';
  PartialFile partial(folder, task.name, task.means);
  int const error = partial.CreateLink(target);
  return error == 0 ? Finish(task, link, &partial, observer) : StatusFromErrno(error);
}

std::string DestinationOf(FileTask const& task) { return task.folder + "/" + task.name; }

bool OnOneVolume(struct statx const& first, struct statx const& second) {
  unsigned const known = first.stx_mask & second.stx_mask;
  return first.stx_dev_major == second.stx_dev_major &&
         first.stx_dev_minor == second.stx_dev_minor &&
         ((known & STATX_MNT_ID) == 0 || first.stx_mnt_id == second.stx_mnt_id);
}

}  // namespace

OSStatus CopyFile(FileTask const& task, CopyObserver* observer) {
  constexpr int kFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;
  Descriptor const folder(Uninterrupted([&] { return open(task.folder.c_str(), kFlags); }));
  if (!folder.IsOpen()) return StatusFromErrno(errno);
  struct stat facts;
  if (task.isMove && lstat(task.source.c_str(), &facts) == 0 && S_ISLNK(facts.st_mode)) {
    return MoveLink(task, folder.Get(), facts, observer);
  }
  return CopyRegularFile(task, folder.Get(), observer);
}

std::optional<UInt64> SizeToRename(FileTask const& task) {
  constexpr unsigned kMask = STATX_TYPE | STATX_SIZE | STATX_MNT_ID;
  struct statx source;
  struct statx folder;
  if (statx(AT_FDCWD, task.source.c_str(), AT_SYMLINK_NOFOLLOW, kMask, &source) != 0 ||
      statx(AT_FDCWD, task.folder.c_str(), 0, kMask, &folder) != 0) {
    return std::nullopt;
  }
  if (!S_ISREG(source.stx_mode) && !S_ISLNK(source.stx_mode)) return std::nullopt;
  if (!OnOneVolume(source, folder)) return std::nullopt;
  return source.stx_size;
}

std::optional<OSStatus> RenameFile(FileTask const& task) {
  std::string const destination = DestinationOf(task);
  int error = 0;
  if (!task.overwrite) {
    error = RenameWithoutReplacing(AT_FDCWD, task.source.c_str(), AT_FDCWD, destination.c_str(),
                                   task.means);
  } else {
    struct stat source;
    if (lstat(task.source.c_str(), &source) != 0) return StatusFromErrno(errno);
    OSStatus const status = CheckDestination(task, AT_FDCWD, destination.c_str(), source);
    if (status != noErr) return status;
    if (rename(task.source.c_str(), destination.c_str()) != 0) error = errno;
  }
  if (error == EXDEV) return std::nullopt;
  return error == 0 ? OSErr{noErr} : StatusFromErrno(error);
}
