#pragma once

// CUDriveInfo, the volume on which a path lies, and the kind of its device.

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/strings/CUStringMac.h"

enum _CUDriveType : unsigned int {
  CUDriveType_CDROM = 0,        // an optical medium: CD, DVD or Blu-ray
  CUDriveType_Fixed = 1,        // a device that none of the others describes
  CUDriveType_NoBSDDevice = 2,  // mounted, but on no device: memory, network
  CUDriveType_RAM = 4,          // a RAM disk
  CUDriveType_Removable = 5,    // a medium that can be ejected or removed
  CUDriveType_Unknown = 6       // below "/Volumes", with nothing mounted there
};

// The root path and the kind are settled by construction; everything else is asked of the platform
// at each call and never kept. So an object for a drive that is not mounted stays of the unknown
// kind, and gives real sizes once it is mounted. Threads may share an object.
class QUILLMERE_API CUDriveInfo : public CUObject {
 public:
  // The volume of any path, also of one that does not exist: then that of its nearest existing
  // ancestor, but for a path below a missing "/Volumes/name", which stands for that drive. Throw as
  // Init does; a null pointer is error code 2.
  CUDriveInfo(CUStringMac& path);
  CUDriveInfo(CUSharedPtr<CUStringMac> path);

  // The same, with a null pointer for every failure. Never throw.
  static CUSharedPtr<CUDriveInfo> CreateCUDriveInfo(CUStringMac& path);
  static CUSharedPtr<CUDriveInfo> CreateCUDriveInfo(CUSharedPtr<CUStringMac> path);

  // What the constructors do; true, or it throws an `unsigned int`: error code 2 for null, 1 for a
  // path without an existing ancestor or when the platform fails.
  bool Init(CUStringMac* path);

  // The text of CUObject::Description, followed at once by the root path.
  CUSharedPtr<CUStringMac> Description() override;

  // A new copy of the volume's root path.
  CUSharedPtr<CUStringMac> GetName();

  // The name by which the volume is known, or null on any failure. The second is the same.
  CUSharedPtr<CUStringMac> GetVolumeLabel();
  virtual CUSharedPtr<CUStringMac> GetDisplayString();

  // Whether the volume is mounted now.
  bool IsReady();

  // Bytes; 0 on any failure.
  unsigned long long GetTotalSize();
  unsigned long long GetTotalFreeSize();

  _CUDriveType GetDriveType();

  // Whether this is the volume mounted at "/".
  bool IsSysytemDrive();

  // The questions by which Init finds the kind. Strings are the caller's to release, and so are
  // services, with IOObjectRelease; null and 0 stand for failure.

  // The kernel's name of the volume's device, or null.
  __CFString const* QueryBSDDevName();

  // The service of that device in the device registry; 0 for null.
  unsigned int QueryIOServiceByBSDName(__CFString const* bsdName);

  // Whether the service or an ancestor is an optical medium as a whole.
  bool IsCDDriveByIORegistryServiceTree(unsigned int service);

  // The interconnect of the first that has one of the service and its ancestors, or null.
  __CFString const* QueryIOPropertyPhysicalInterconnectLocationByIORegistryServiceTree(
      unsigned int service);

  // These two look at the service alone, despite their names; a missing property counts as false.
  bool IsEjectableByIORegistryServiceTree(unsigned int service);
  bool IsRemovableByIORegistryServiceTree(unsigned int service);

  // Whether this one is an optical medium, and no partition of it.
  bool IsWholeMediaAndCDDriveByIOService(unsigned int service);

  // The interconnect of this one, or null.
  __CFString const* QueryIOPropertyPhysicalInterconnectLocationByIOService(unsigned int service);

 private:
  void Classify();
  _CUDriveType KindOf(unsigned int service);

  CUStringMac drivePath;
  CUStringMac driveName;
  _CUDriveType driveType;
};
