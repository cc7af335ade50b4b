#include "platform/linux/BlockDevices.h"

#include <sys/sysmacros.h>

#include <climits>
#include <cstdlib>
#include <string_view>

namespace {

std::mutex sessionLock;

constexpr std::string_view kDevices = "/dev/";
constexpr char kLabels[] = "/dev/disk/by-label/";

// What `path`, followed to its end, is called below /dev; `path` itself where nothing is there, as
// in containers that see a mount and not its device. Empty for what does not end in /dev.
std::string NameBelowDev(std::string const& path) {
  char target[PATH_MAX];
  std::string_view end = realpath(path.c_str(), target) != nullptr ? target : path.c_str();
  if (end.substr(0, kDevices.size()) != kDevices) return {};
  end.remove_prefix(kDevices.size());
  return std::string(end);
}

// Decodes the "\x20" that udev writes for a byte that is not harmless in a name.
std::string Decode(std::string_view encoded) {
  std::string text;
  for (std::size_t i = 0; i < encoded.size(); ++i) {
    unsigned int byte = static_cast<unsigned char>(encoded[i]);
    if (encoded.substr(i, 2) == "\\x" && encoded.size() - i >= 4) {
      byte = static_cast<unsigned int>(
          std::strtoul(std::string(encoded.substr(i + 2, 2)).c_str(), nullptr, 16));
      i += 3;
    }
    text += static_cast<char>(byte);
  }
  return text;
}

// The links in /dev tell what udev knew, also where its database cannot be seen.
std::string LabelByLink(std::string const& name) {
  DirectoryHandle const folder(opendir(kLabels));
  if (!folder) return {};
  while (dirent const* const entry = readdir(folder.Get())) {
    std::string const label = entry->d_name;
    if (NameBelowDev(kLabels + label) == name) return Decode(label);
  }
  return {};
}

}  // namespace

UdevSession::UdevSession() : m_guard(sessionLock), m_context(udev_new()) {}

UdevDeviceHandle FindBlockDevice(udev* context, std::string const& name) {
  if (name.empty()) return {};
  return UdevDeviceHandle(udev_device_new_from_subsystem_sysname(context, "block", name.c_str()));
}

std::string DeviceNameOf(MountedVolume const& volume) {
  UdevSession const context;
  if (!context) return {};
  UdevDeviceHandle device;
  if (std::string_view(volume.source).substr(0, kDevices.size()) == kDevices) {
    device = FindBlockDevice(context.Get(), NameBelowDev(volume.source));
  }
  // The source can be a text like "/dev/root"; a number of 0 is that of no device.
  if (!device && major(volume.device) != 0) {
    device = UdevDeviceHandle(udev_device_new_from_devnum(context.Get(), 'b', volume.device));
  }
  return device ? udev_device_get_sysname(device.Get()) : std::string();
}

std::string LabelOf(std::string const& name) {
  UdevSession const context;
  if (!context) return {};
  UdevDeviceHandle const device = FindBlockDevice(context.Get(), name);
  if (!device) return {};
  char const* const encoded = udev_device_get_property_value(device.Get(), "ID_FS_LABEL_ENC");
  if (encoded != nullptr) return Decode(encoded);
  char const* const plain = udev_device_get_property_value(device.Get(), "ID_FS_LABEL");
  return plain != nullptr ? plain : LabelByLink(name);
}
