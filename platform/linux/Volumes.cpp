#include <CoreServices/Volumes.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unicode/ustring.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <new>
#include <optional>

#include "platform/linux/BlockDevices.h"
#include "platform/linux/Errors.h"
#include "platform/linux/FileNames.h"
#include "platform/linux/MountTable.h"
#include "platform/linux/VolumeNumbers.h"

namespace {

// The volumes that were ever asked for; the place of one, counted from 1, is its number.
struct Numbers {
  std::mutex lock;
  std::vector<MountedVolume> volumes;
};

Numbers& SharedNumbers() {
  static auto* const numbers = new Numbers;  // never destroyed: other threads may outlive main
  return *numbers;
}

// The same file system at the same place, also after it was away in between.
bool IsSame(MountedVolume const& first, MountedVolume const& second) {
  return first.device == second.device && first.mountPoint == second.mountPoint &&
         first.source == second.source;
}

FSVolumeRefNum NumberOf(MountedVolume const& volume) {
  Numbers& numbers = SharedNumbers();
  std::lock_guard<std::mutex> const guard(numbers.lock);
  std::size_t index = 0;
  while (index < numbers.volumes.size() && !IsSame(numbers.volumes[index], volume)) ++index;
  if (index == std::numeric_limits<FSVolumeRefNum>::max()) return 0;
  if (index == numbers.volumes.size()) numbers.volumes.push_back(volume);
  return static_cast<FSVolumeRefNum>(index + 1);
}

// The volume with that number, if it is mounted and no other is mounted over it.
std::optional<MountedVolume> MountedVolumeWith(FSVolumeRefNum number) {
  std::optional<MountedVolume> known;
  {
    Numbers& numbers = SharedNumbers();
    std::lock_guard<std::mutex> const guard(numbers.lock);
    if (number < 1 || static_cast<std::size_t>(number) > numbers.volumes.size()) return {};
    known = numbers.volumes[static_cast<std::size_t>(number) - 1];
  }
  std::vector<MountedVolume> const table = ReadMountTable();
  MountedVolume const* const present = VolumeAt(table, known->mountPoint);
  if (present == nullptr || !IsSame(*present, *known)) return {};
  return *present;
}

// The path without links on the way; a link at its end stays. Empty where nothing is there.
std::string WithoutLinks(std::string const& path) {
  struct stat facts;
  if (lstat(path.c_str(), &facts) != 0) return {};
  std::string const link = S_ISLNK(facts.st_mode) ? path.substr(path.rfind('/') + 1) : "";
  char target[PATH_MAX];
  if (realpath(path.substr(0, path.size() - link.size()).c_str(), target) == nullptr) return {};
  std::string result = target;
  if (!link.empty() && result.back() != '/') result += '/';
  return result + link;
}

// Turns UTF-8 into the name; false where it is empty, does not decode or does not fit.
bool SetName(HFSUniStr255* name, std::string const& text) {
  static_assert(sizeof(UChar) == sizeof(UniChar));
  constexpr int32_t kCapacity = 255;
  int32_t length = 0;
  UErrorCode error = U_ZERO_ERROR;
  u_strFromUTF8(reinterpret_cast<UChar*>(name->unicode), kCapacity, &length, text.data(),
                static_cast<int32_t>(text.size()), &error);
  if (U_FAILURE(error) || length == 0) return false;
  name->length = static_cast<UInt16>(length);
  return true;
}

bool SetName(HFSUniStr255* name, MountedVolume const& volume) {
  if (SetName(name, LabelOf(DeviceNameOf(volume)))) return true;
  std::string const& path = volume.mountPoint;
  return SetName(name, path == "/" ? path : path.substr(path.rfind('/') + 1));
}

UInt64 Bytes(fsblkcnt_t blocks, unsigned long blockSize) {
  UInt64 bytes = 0;
  return __builtin_mul_overflow(blocks, blockSize, &bytes) ? std::numeric_limits<UInt64>::max()
                                                           : bytes;
}

OSErr Measure(std::string const& mountPoint, FSVolumeInfo* info) {
  struct statvfs facts;
  if (Uninterrupted([&] { return statvfs(mountPoint.c_str(), &facts); }) != 0) {
    return StatusFromErrno(errno);
  }
  info->totalBytes = Bytes(facts.f_blocks, facts.f_frsize);
  info->freeBytes = Bytes(facts.f_bavail, facts.f_frsize);
  return noErr;
}

OSErr TellOf(FSVolumeRefNum number, FSVolumeInfo* info, HFSUniStr255* volumeName,
             FSRef* rootDirectory) {
  std::optional<MountedVolume> const volume = MountedVolumeWith(number);
  if (!volume) return nsvErr;
  if (volume->mountPoint.size() >= sizeof rootDirectory->path) return bdNamErr;
  HFSUniStr255 name;
  if (volumeName != nullptr && !SetName(&name, *volume)) return bdNamErr;
  if (info != nullptr) {
    OSErr const status = Measure(volume->mountPoint, info);
    if (status != noErr) return status;
  }
  if (volumeName != nullptr) {
    volumeName->length = name.length;
    std::memcpy(volumeName->unicode, name.unicode, name.length * sizeof(UniChar));
  }
  if (rootDirectory != nullptr) {
    std::memcpy(rootDirectory->path, volume->mountPoint.c_str(), volume->mountPoint.size() + 1);
    rootDirectory->isFile = false;
  }
  return noErr;
}

}  // namespace

FSVolumeRefNum VolumeNumberOf(char const* absolutePath) noexcept {
  try {
    std::string const path = WithoutLinks(absolutePath);
    if (path.empty()) return 0;
    std::vector<MountedVolume> const table = ReadMountTable();
    MountedVolume const* const volume = VolumeAt(table, path);
    return volume != nullptr ? NumberOf(*volume) : FSVolumeRefNum{0};
  } catch (std::bad_alloc const&) {
    return 0;
  }
}

OSErr FSGetVolumeInfo(FSVolumeRefNum volume, ItemCount volumeIndex, FSVolumeRefNum* actualVolume,
                      FSVolumeInfoBitmap whichInfo, FSVolumeInfo* info, HFSUniStr255* volumeName,
                      FSRef* rootDirectory) {
  bool const wantsSizes = whichInfo == kFSVolInfoSizes;
  if (volumeIndex != 0 || actualVolume != nullptr || (wantsSizes && info == nullptr) ||
      (!wantsSizes && whichInfo != kFSVolInfoNone)) {
    return paramErr;
  }
  try {
    return TellOf(volume, wantsSizes ? info : nullptr, volumeName, rootDirectory);
  } catch (std::bad_alloc const&) {
    return memFullErr;
  }
}
