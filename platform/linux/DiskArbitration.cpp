#include <CoreServices/Files.h>
#include <DiskArbitration/DiskArbitration.h>

#include <new>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/BlockDevices.h"
#include "platform/linux/CFObject.h"
#include "platform/linux/MountTable.h"

struct __DASession final : CFObject {};

struct __DADisk final : CFObject {
  explicit __DADisk(std::string&& bsdName) : name(std::move(bsdName)) {}

  std::string const name;
};

DASessionRef DASessionCreate(CFAllocatorRef) { return MakeCFObject<__DASession>(0); }

DADiskRef DADiskCreateFromVolumePath(CFAllocatorRef, DASessionRef session, CFURLRef path) {
  FSRef ref;
  if (session == nullptr || path == nullptr || !CFURLGetFSRef(path, &ref)) return nullptr;
  std::string name;
  try {
    std::vector<MountedVolume> const table = ReadMountTable();
    MountedVolume const* const volume = VolumeAt(table, ref.path);
    if (volume == nullptr || volume->mountPoint != ref.path) return nullptr;
    name = DeviceNameOf(*volume);
  } catch (std::bad_alloc const&) {
    return nullptr;
  }
  return MakeCFObject<__DADisk>(0, std::move(name));
}

char const* DADiskGetBSDName(DADiskRef disk) {
  return disk->name.empty() ? nullptr : disk->name.c_str();
}
