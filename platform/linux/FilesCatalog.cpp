// What is known of an entry, and its deletion and renaming.

#include <CoreServices/Files.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "platform/linux/Errors.h"
#include "platform/linux/FileNames.h"
#include "platform/linux/Handles.h"
#include "platform/linux/VolumeNumbers.h"

namespace {

constexpr FSCatalogInfoBitmap kKnownInfo = kFSCatInfoNodeFlags | kFSCatInfoVolume |
                                           kFSCatInfoCreateDate | kFSCatInfoContentMod |
                                           kFSCatInfoDataSizes;

// From the start of 1904 to that of 1970.
constexpr SInt64 kSecondsBeforeUnixTime = 2082844800;

// No date before 1904 and none beyond 48 bits of seconds.
UTCDateTime DateFrom(statx_timestamp const& stamp) {
  SInt64 const seconds = stamp.tv_sec + kSecondsBeforeUnixTime;
  if (stamp.tv_sec < -kSecondsBeforeUnixTime || seconds >> 48 != 0) return {};
  return {static_cast<UInt16>(seconds >> 32), static_cast<UInt32>(seconds),
          static_cast<UInt16>((UInt64{stamp.tv_nsec} << 16) / 1000000000)};
}

// Some file systems say that they know the date of creation, and give the start of 1970 for it.
UTCDateTime CreationFrom(struct statx const& facts) {
  bool const known = (facts.stx_mask & STATX_BTIME) != 0 &&
                     (facts.stx_btime.tv_sec != 0 || facts.stx_btime.tv_nsec != 0);
  return known ? DateFrom(facts.stx_btime) : UTCDateTime{};
}

// Takes the name by an entry that only this renaming replaces; whoever has it already keeps it.
OSErr ReserveAndRename(FSRef const& ref, FSRef const& entry, bool isDirectory) {
  if (isDirectory) {
    if (mkdir(entry.path, 0700) != 0) return NamingFailure(errno);
  } else {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    Descriptor const reserved(Uninterrupted([&] { return open(entry.path, kFlags, 0600); }));
    if (!reserved.IsOpen()) return NamingFailure(errno);
  }
  if (rename(ref.path, entry.path) == 0) return noErr;
  OSErr const status = StatusFromErrno(errno);
  if (isDirectory) {
    rmdir(entry.path);
  } else {
    unlink(entry.path);
  }
  return status;
}

OSErr RenameWithoutReplacing(FSRef const& ref, FSRef const& entry) {
  struct stat facts;
  if (lstat(ref.path, &facts) != 0) return StatusFromErrno(errno);
  if (std::strcmp(ref.path, entry.path) == 0) return noErr;
  if (renameat2(AT_FDCWD, ref.path, AT_FDCWD, entry.path, RENAME_NOREPLACE) == 0) return noErr;
  // Not every file system, and not every kernel, renames in this way.
  if (errno != EINVAL && errno != ENOSYS) return StatusFromErrno(errno);
  return ReserveAndRename(ref, entry, S_ISDIR(facts.st_mode));
}

}  // namespace

OSErr FSGetCatalogInfo(FSRef const* ref, FSCatalogInfoBitmap whichInfo, FSCatalogInfo* catalogInfo,
                       HFSUniStr255* outName, FSSpec* fsSpec, FSRef* parentRef) {
  if (ref == nullptr || PathLength(*ref) == 0 || (whichInfo & ~kKnownInfo) != 0 ||
      (catalogInfo == nullptr && whichInfo != kFSCatInfoNone) || outName != nullptr ||
      fsSpec != nullptr || parentRef != nullptr) {
    return paramErr;
  }
  struct statx facts;
  constexpr unsigned kMask = STATX_BASIC_STATS | STATX_BTIME;
  if (statx(AT_FDCWD, ref->path, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, kMask, &facts) != 0) {
    return StatusFromErrno(errno);
  }
  if ((whichInfo & kFSCatInfoVolume) != 0) {
    FSVolumeRefNum const volume = VolumeNumberOf(ref->path);
    if (volume == 0) return nsvErr;
    catalogInfo->volume = volume;
  }
  if ((whichInfo & kFSCatInfoNodeFlags) != 0) {
    catalogInfo->nodeFlags = S_ISDIR(facts.stx_mode) ? UInt16{kFSNodeIsDirectoryMask} : UInt16{0};
  }
  if ((whichInfo & kFSCatInfoCreateDate) != 0) catalogInfo->createDate = CreationFrom(facts);
  if ((whichInfo & kFSCatInfoContentMod) != 0)
    catalogInfo->contentModDate = DateFrom(facts.stx_mtime);
  if ((whichInfo & kFSCatInfoDataSizes) != 0) {
    bool const isFile = S_ISREG(facts.stx_mode);
    catalogInfo->dataLogicalSize = isFile ? facts.stx_size : 0;
    catalogInfo->dataPhysicalSize = isFile ? facts.stx_blocks * 512 : 0;
  }
  return noErr;
}

OSErr FSDeleteObject(FSRef const* ref) {
  if (ref == nullptr || PathLength(*ref) == 0) return paramErr;
  if (unlink(ref->path) == 0) return noErr;
  int error = errno;
  // How unlink tells a directory depends on the file system; an entry that it merely refuses to
  // delete is known by rmdir finding no directory.
  if (error == EISDIR || error == EPERM) {
    if (rmdir(ref->path) == 0) return noErr;
    if (errno != ENOTDIR) error = errno == EEXIST ? ENOTEMPTY : errno;
  }
  return StatusFromErrno(error);
}

OSErr FSRenameUnicode(FSRef const* ref, UniCharCount nameLength, UniChar const* name, TextEncoding,
                      FSRef* newRef) {
  if (ref == nullptr || PathLength(*ref) == 0) return paramErr;
  FileName fileName;
  OSErr status = FileNameFromUnits(name, nameLength, &fileName);
  if (status != noErr) return status;

  char const* const slash = std::strrchr(ref->path, '/');
  if (slash == nullptr) return paramErr;
  FSRef entry;
  std::size_t length = static_cast<std::size_t>(slash - ref->path) + 1;
  std::memcpy(entry.path, ref->path, length);
  status = AppendToPath(&entry, &length, fileName.bytes, fileName.length);
  if (status == noErr) status = RenameWithoutReplacing(*ref, entry);
  if (status == noErr && newRef != nullptr) CopyRef(entry, length, newRef);
  return status;
}
