#include <SystemReport.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>

namespace {

constexpr char const* kTool = "quillmere-system-report";

std::string Quoted(std::string const& path) {
  std::string word = "'";
  for (char const unit : path) {
    if (unit == '\'') {
      word += "'\\''";
    } else {
      word += unit;
    }
  }
  return word + "'";
}

// The folder of the file that this code was loaded from, be it the library or a program that has it
// built in. By the table of mappings, whose paths are absolute whatever the working directory is
// now; the loader only knows the path that it was given.
std::string FolderOfThisCode() {
  auto const place = reinterpret_cast<std::uintptr_t>(&SystemReportTool);
  std::ifstream mappings("/proc/self/maps");
  for (std::string line; std::getline(mappings, line);) {
    std::uintptr_t start = 0;
    std::uintptr_t end = 0;
    if (std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR, &start, &end) != 2) continue;
    if (start > place || place >= end) continue;
    std::size_t const path = line.find('/');
    return path == std::string::npos ? "" : line.substr(path, line.rfind('/') + 1 - path);
  }
  return "";
}

// Beside the library, as built or bundled with an application, else where installation puts it,
// which is found from the library too: the whole may have been moved. Else the shell looks for it.
std::string FindTool() {
  std::string const folder = FolderOfThisCode();
  if (folder.empty()) return kTool;
  for (char const* const way : {"", QUILLMERE_LIB_TO_LIBEXEC "/"}) {
    std::string const path = folder + way + kTool;
    if (access(path.c_str(), X_OK) == 0) return Quoted(path);
  }
  return kTool;
}

}  // namespace

char const* SystemReportTool() {
  // Never destroyed: a thread may ask while the process exits.
  static std::string const& tool = *new std::string(FindTool());
  return tool.c_str();
}
