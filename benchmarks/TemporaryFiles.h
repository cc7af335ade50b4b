#pragma once

// Files for the benchmarks, in the temporary folder ($TMPDIR, else /tmp).

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

// A folder for the program's files, removed at its end.
class Folder {
 public:
  Folder() {
    m_path = (std::filesystem::temp_directory_path() / "quillmere-bench-XXXXXX").string();
    if (mkdtemp(m_path.data()) == nullptr) std::abort();
  }
  Folder(Folder const&) = delete;
  Folder& operator=(Folder const&) = delete;
  ~Folder() { std::filesystem::remove_all(m_path); }
  std::string const& Path() const { return m_path; }
  std::string File(std::string const& name) const { return m_path + "/" + name; }

 private:
  std::string m_path;
};

inline Folder const& TheFolder() {
  static Folder const folder;
  return folder;
}

class Descriptor {
 public:
  Descriptor(std::string const& path, int flags) : m_number(open(path.c_str(), flags, 0644)) {
    if (m_number < 0) std::abort();
  }
  ~Descriptor() { close(m_number); }
  Descriptor(Descriptor const&) = delete;
  Descriptor& operator=(Descriptor const&) = delete;
  int Get() const { return m_number; }

 private:
  int m_number;
};

// Makes a file of `size` bytes, a multiple of 1 MiB, that is on the disk and stays in the page
// cache.
inline void FillFile(std::string const& path, std::size_t size) {
  Descriptor const file(path, O_WRONLY | O_CREAT | O_TRUNC);
  std::vector<char> const block(std::size_t{1} << 20, 'q');
  for (std::size_t done = 0; done < size; done += block.size()) {
    if (write(file.Get(), block.data(), block.size()) < 0) std::abort();
  }
  fsync(file.Get());
}
