#include "platform/linux/RegistryDevice.h"

#include <string_view>

#include "platform/linux/BlockDevices.h"

namespace {

bool IsEqual(char const* text, std::string_view expected) {
  return text != nullptr && text == expected;
}

bool HasAttribute(udev_device* device, char const* name, std::string_view value) {
  return IsEqual(udev_device_get_sysattr_value(device, name), value);
}

bool HasProperty(udev_device* device, char const* name) {
  return IsEqual(udev_device_get_property_value(device, name), "1");
}

bool IsBlock(udev_device* device) { return IsEqual(udev_device_get_subsystem(device), "block"); }

bool IsDisk(udev_device* device) {
  return IsBlock(device) && IsEqual(udev_device_get_devtype(device), "disk");
}

UdevDeviceHandle Share(udev_device* device) {
  return UdevDeviceHandle(device != nullptr ? udev_device_ref(device) : nullptr);
}

// The device on which a mapped one lies, if that is a single one: an encrypted volume is as
// removable as the stick that holds it.
UdevDeviceHandle SlaveOf(udev_device* device) {
  std::string const path = std::string(udev_device_get_syspath(device)) + "/slaves";
  DirectoryHandle const folder(opendir(path.c_str()));
  if (!folder) return {};
  std::string slave;
  while (dirent const* const entry = readdir(folder.Get())) {
    if (entry->d_name[0] == '.') continue;
    if (!slave.empty()) return {};
    slave = entry->d_name;
  }
  return FindBlockDevice(udev_device_get_udev(device), slave);
}

UdevDeviceHandle ParentOf(udev_device* device) {
  UdevDeviceHandle slave = IsDisk(device) ? SlaveOf(device) : UdevDeviceHandle();
  return slave ? std::move(slave) : Share(udev_device_get_parent(device));
}

// The disk at the bottom: that of a partition, of a mapped device, or the device itself.
UdevDeviceHandle DiskUnder(udev_device* device) {
  UdevDeviceHandle disk = Share(device);
  for (;;) {
    UdevDeviceHandle parent = ParentOf(disk.Get());
    if (!parent || !IsBlock(parent.Get())) return disk;
    disk = std::move(parent);
  }
}

// Whether a name is `prefix` and a number.
bool IsNumbered(std::string_view name, std::string_view prefix) {
  return name.substr(0, prefix.size()) == prefix && name.size() > prefix.size() &&
         name.find_first_not_of("0123456789", prefix.size()) == name.npos;
}

udev_device* AncestorOf(udev_device* device, char const* subsystem, char const* type) {
  return udev_device_get_parent_with_subsystem_devtype(device, subsystem, type);
}

bool IsExternal(udev_device* disk) {
  // A hub may know that what hangs on it is built in, as readers of cards are.
  udev_device* const usb = AncestorOf(disk, "usb", "usb_device");
  if (usb != nullptr) return !HasAttribute(usb, "removable", "fixed");
  udev_device* const pci = AncestorOf(disk, "pci", nullptr);
  return AncestorOf(disk, "firewire", nullptr) != nullptr ||
         (pci != nullptr && HasAttribute(pci, "removable", "removable"));
}

char const* LocationOf(udev_device* disk) {
  std::string_view const name = udev_device_get_sysname(disk);
  if (IsNumbered(name, "ram") || IsNumbered(name, "zram")) return "RAM";
  if (IsNumbered(name, "loop")) return "File";
  return IsExternal(disk) ? "External" : "Internal";
}

bool IsRemovable(udev_device* disk) {
  if (HasAttribute(disk, "removable", "1")) return true;
  // To the kernel a card is the whole device and so not removable from it.
  udev_device* const card = AncestorOf(disk, "mmc", nullptr);
  return card != nullptr && HasAttribute(card, "type", "SD");
}

bool IsEjectable(udev_device* disk) {
  return HasAttribute(disk, "removable", "1") || HasProperty(disk, "ID_CDROM") ||
         HasProperty(disk, "ID_DRIVE_EJECTABLE");
}

// Each kind of disc has a property of its own (ID_CDROM_MEDIA_DVD_PLUS_R), which drives that could
// take one, but hold none, do not have.
char const* DiscClassOf(udev_device* device) {
  struct {
    std::string_view prefix;
    char const* name;
  } constexpr kClasses[] = {{"ID_CDROM_MEDIA_CD", "IOCDMedia"},
                            {"ID_CDROM_MEDIA_DVD", "IODVDMedia"},
                            {"ID_CDROM_MEDIA_HDDVD", "IODVDMedia"},
                            {"ID_CDROM_MEDIA_BD", "IOBDMedia"}};
  udev_list_entry* entry = udev_device_get_properties_list_entry(device);
  for (; entry != nullptr; entry = udev_list_entry_get_next(entry)) {
    std::string_view const property = udev_list_entry_get_name(entry);
    for (auto const& [prefix, name] : kClasses) {
      bool const isOfClass = property.substr(0, prefix.size()) == prefix &&
                             (property.size() == prefix.size() || property[prefix.size()] == '_');
      if (isOfClass && IsEqual(udev_list_entry_get_value(entry), "1")) return name;
    }
  }
  return nullptr;
}

RegistryDevice Describe(udev_device* device) {
  RegistryDevice facts;
  facts.sysPath = udev_device_get_syspath(device);
  facts.isMedia = IsBlock(device);
  if (!facts.isMedia) return facts;
  UdevDeviceHandle const disk = DiskUnder(device);
  facts.isWhole = IsDisk(device);
  facts.isRemovable = IsRemovable(disk.Get());
  facts.isEjectable = IsEjectable(disk.Get());
  facts.discClass = DiscClassOf(device);
  if (facts.isWhole) facts.location = LocationOf(disk.Get());
  return facts;
}

}  // namespace

RegistryDevice DescribeBlockDevice(std::string const& name) {
  UdevSession const context;
  if (!context) return {};
  UdevDeviceHandle const device = FindBlockDevice(context.Get(), name);
  return device ? Describe(device.Get()) : RegistryDevice();
}

std::vector<RegistryDevice> DescribeAncestors(RegistryDevice const& device) {
  std::vector<RegistryDevice> ancestors;
  UdevSession const context;
  if (!context) return ancestors;
  UdevDeviceHandle current(udev_device_new_from_syspath(context.Get(), device.sysPath.c_str()));
  while (current) {
    current = ParentOf(current.Get());
    if (current) ancestors.push_back(Describe(current.Get()));
  }
  return ancestors;
}
