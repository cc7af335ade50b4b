#pragma once

// Block devices by the names that the kernel gives them: "sda1", "sr0", "dm-0".

#include <mutex>
#include <string>

#include "platform/linux/Handles.h"
#include "platform/linux/MountTable.h"

// A context of libudev, for one thread at a time: others that make one wait. The library asks for
// that within a context only, but its hash tables draw their keys from a place that no lock guards.
class UdevSession {
 public:
  UdevSession();

  // The context, or null when memory runs out.
  udev* Get() const { return m_context.Get(); }
  explicit operator bool() const { return m_context.Get() != nullptr; }

 private:
  std::lock_guard<std::mutex> m_guard;
  UdevHandle m_context;
};

// The device `name`, or null. Lookup is by name and not by number, since a name is what users and
// mount tables see. The result must not outlive the context.
UdevDeviceHandle FindBlockDevice(udev* context, std::string const& name);

// The device that the volume lies on, links in /dev followed; empty for a volume without one, as a
// tmpfs or a network mount is. Throws std::bad_alloc, as the next does. Both may be called from any
// thread.
std::string DeviceNameOf(MountedVolume const& volume);

// The label of the file system on the device `name`; empty where it has none or it is not known.
std::string LabelOf(std::string const& name);
