#pragma once

// What the device registry tells of a device, as kernel and udev know it.

#include <string>
#include <vector>

// Plain facts, taken at one moment. All but the path are meant for block devices.
struct RegistryDevice {
  std::string sysPath;              // where the kernel describes it
  bool isMedia = false;             // a block device
  bool isWhole = false;             // and no partition
  bool isRemovable = false;         // the disk that it is, or is a part of
  bool isEjectable = false;         // the same
  char const* discClass = nullptr;  // the class of the disc that is in it, or null
  char const* location = nullptr;   // where a whole one is connected, else null
};

// The block device with the kernel's name `name`; one without a path where there is none. Throws
// std::bad_alloc, as the next does. Both may be called from any thread.
RegistryDevice DescribeBlockDevice(std::string const& name);

// The ancestors of the device, nearest first.
std::vector<RegistryDevice> DescribeAncestors(RegistryDevice const& device);
