#pragma once

// What the sweeps share: their two forms, the figures that they print, the place of the user's
// data, and transfers of files.

#include <CoreServices/CoreServices.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "QuillmereLib/filesystem/CUFile.h"
#include "platform/linux/FileCopy.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"

// The long form, of scripts/reliability --full; else the one that ctest runs.
inline bool IsFull() { return std::getenv("QUILLMERE_RELIABILITY_FULL") != nullptr; }

// A line of a table in docs/reliability.md.
[[gnu::format(printf, 1, 2)]] inline void PrintFigures(char const* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::fputs("| ", stdout);
  std::vprintf(format, arguments);
  std::fputs(" |\n", stdout);
  va_end(arguments);
}

// One folder a process, since GLib asks once. Puts it into the environment.
inline std::string const& UserData() {
  static TemporaryFolder const folder;
  static std::string const path = folder.Path();
  setenv("XDG_DATA_HOME", path.c_str(), 1);
  return path;
}

// By the public operation.
inline bool Transfer(std::string const& from, std::string const& to, bool isMove, bool overwrite) {
  auto const goOn = [](unsigned long long, unsigned long long, void*) { return true; };
  _CopyProgress_Info info = {goOn, nullptr, nullptr};
  auto const transfer = isMove ? CUFile::MoveWithProgress : CUFile::CopyWithProgress;
  return transfer(Make(from), Make(to), &info, overwrite) == CUResult_Success;
}

// By what it stands on, which can do with fewer of the system's means.
inline bool Transfer(FileTask const& task) {
  struct Willing final : CopyObserver {
    bool Continues(UInt64, UInt64) override { return true; }
    bool Approves(UInt64) override { return true; }
  } willing;
  return CopyFile(task, &willing) == noErr;
}

// Of unfinished copies.
inline long CountHidden(std::string const& folder) {
  namespace fs = std::filesystem;
  fs::directory_iterator const entries(folder);
  return std::count_if(begin(entries), end(entries), [](fs::directory_entry const& entry) {
    return entry.path().filename().string().find(".quillmere-") != std::string::npos;
  });
}
