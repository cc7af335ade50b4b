#pragma once

// A mount table of the test's own in place of the kernel's.

#include <string>

#include "platform/linux/MountTable.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

// While this lives, what is mounted is what the test says; nothing at first.
class MountTableFile {
 public:
  MountTableFile() : m_path(m_folder.Path() + "/mountinfo") {
    WriteFile(m_path, "");
    SetMountTableFileForTests(m_path.c_str());
  }
  MountTableFile(MountTableFile const&) = delete;
  MountTableFile& operator=(MountTableFile const&) = delete;
  ~MountTableFile() { SetMountTableFileForTests(nullptr); }

  // Adds a mount and gives its id, the count of the mounts so far. `parent` 0 is a root. `device`
  // is "major:minor".
  int Add(int parent, std::string const& device, std::string const& mountPoint,
          std::string const& source) {
    m_lines += std::to_string(++m_count) + " " + std::to_string(parent) + " " + device + " / " +
               Mangled(mountPoint) + " rw - ext4 " + Mangled(source) + " rw\n";
    WriteFile(m_path, m_lines);
    return m_count;
  }

  void Clear() {
    m_count = 0;
    WriteFile(m_path, m_lines = "");
  }

 private:
  // The kernel writes blanks in octal.
  static std::string Mangled(std::string const& text) {
    std::string mangled;
    for (char const c : text) mangled += c == ' ' ? std::string("\\040") : std::string(1, c);
    return mangled;
  }

  TemporaryFolder m_folder;
  std::string m_path;
  std::string m_lines;
  int m_count = 0;
};
