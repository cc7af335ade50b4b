#pragma once

// A folder of its own for one test, gone with everything in it at the test's end.

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

class TemporaryFolder {
 public:
  explicit TemporaryFolder(char const* parent = getenv("TMPDIR")) {
    m_path =
        std::string(parent != nullptr && *parent != '\0' ? parent : "/tmp") + "/quillmere.XXXXXX";
    if (mkdtemp(m_path.data()) == nullptr) throw std::runtime_error("no folder at " + m_path);
  }
  TemporaryFolder(TemporaryFolder const&) = delete;
  TemporaryFolder& operator=(TemporaryFolder const&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }

  // Absolute, without a slash at its end.
  std::string Path() const { return m_path; }

 private:
  std::string m_path;
};
