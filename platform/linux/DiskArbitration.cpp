#include <CoreServices/Files.h>
#include <DiskArbitration/DiskArbitration.h>

#include <new>

#include "platform/linux/BlockDevices.h"
#include "platform/linux/CFObject.h"
#include "platform/linux/MountTable.h"

struct __DASession final : CFObject {};

struct __DADisk final : CFObject {
  std::string name;
};

DASessionRef DASessionCreate(CFAllocatorRef) { return MakeCFObject<__DASession>(0); }

DADiskRef DADiskCreateFromVolumePath(CFAllocatorRef, DASessionRef session, CFURLRef path) {
  FSRef ref;
  if (session == nullptr || path == nullptr || !CFURLGetFSRef(path, &ref)) return nullptr;
  DADiskRef const disk = MakeCFObject<__DADisk>(0);
  if (disk == nullptr) return nullptr;
  try {
    std::vector<MountedVolume> const table = ReadMountTable();
    MountedVolume const* const volume = VolumeAt(table, ref.path);
    if (volume != nullptr && volume->mountPoint == ref.path) {
      disk->name = DeviceNameOf(*volume);
      return disk;
    }
  } catch (std::bad_alloc const&) {
  }
  CFRelease(disk);
  return nullptr;
}

char const* DADiskGetBSDName(DADiskRef disk) {
  return disk->name.empty() ? nullptr : disk->name.c_str();
}
