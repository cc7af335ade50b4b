#pragma once

// Devices of the test's own in place of the kernel's.

#include <umockdev.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/Files.h"

// While this lives, /sys and /dev of this process hold only what the test adds.
class SimulatedDevices {
 public:
  // Whether the library that does it was loaded before all else.
  static bool CanBeMade() {
    char const* const loaded = getenv("LD_PRELOAD");
    return loaded != nullptr && std::strstr(loaded, "umockdev") != nullptr;
  }

  SimulatedDevices() : m_testbed(umockdev_testbed_new()) {
    gchar* const root = umockdev_testbed_get_root_dir(m_testbed);
    m_root = root;
    g_free(root);
  }
  SimulatedDevices(SimulatedDevices const&) = delete;
  SimulatedDevices& operator=(SimulatedDevices const&) = delete;
  ~SimulatedDevices() { g_object_unref(m_testbed); }

  using Pairs = std::vector<std::string>;  // name, value, name, value...

  // Gives the path of the new device in /sys. An empty parent is none.
  std::string Add(std::string const& subsystem, std::string const& name, std::string const& parent,
                  Pairs const& attributes, Pairs const& properties) {
    gchar* const path = umockdev_testbed_add_devicev(
        m_testbed, subsystem.c_str(), name.c_str(), parent.empty() ? nullptr : parent.c_str(),
        Pointers(attributes).data(), Pointers(properties).data());
    std::string const result = path;
    g_free(path);
    return result;
  }

  // A disk, with the kernel's flag of media that can be taken out.
  std::string AddDisk(std::string const& name, std::string const& parent, bool isRemovable = false,
                      Pairs properties = {}) {
    properties.insert(properties.end(), {"DEVTYPE", "disk", "DEVNAME", "/dev/" + name});
    return Add("block", name, parent, {"removable", isRemovable ? "1" : "0"}, properties);
  }
  std::string AddPartition(std::string const& name, std::string const& disk,
                           Pairs properties = {}) {
    properties.insert(properties.end(), {"DEVTYPE", "partition", "DEVNAME", "/dev/" + name});
    return Add("block", name, disk, {"partition", "1"}, properties);
  }

  // A symbolic link with that absolute path.
  void Link(std::string const& path, std::string const& target) {
    namespace fs = std::filesystem;
    fs::create_directories(fs::path(m_root + path).parent_path());
    fs::create_symlink(target, m_root + path);
  }

  // An empty file, where only a name is looked at.
  void AddNode(std::string const& path) {
    std::filesystem::create_directories(std::filesystem::path(m_root + path).parent_path());
    WriteFile(m_root + path, "");
  }

  void Remove(std::string const& sysPath) {
    umockdev_testbed_remove_device(m_testbed, sysPath.c_str());
  }

 private:
  static std::vector<gchar*> Pointers(Pairs const& texts) {
    std::vector<gchar*> pointers;
    for (std::string const& text : texts) pointers.push_back(const_cast<gchar*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
  }

  UMockdevTestbed* m_testbed;
  std::string m_root;
};
