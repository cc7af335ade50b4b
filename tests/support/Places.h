#pragma once

// Folders to copy and move between.

#include <filesystem>
#include <set>
#include <string>

#include "tests/support/TemporaryFolder.h"

// Two on one volume, and one on another.
struct Places {
  std::string In(std::string const& name) const { return here.Path() + "/" + name; }

  TemporaryFolder here, there, away{"/dev/shm"};
};

// All names in the folder, in order.
inline std::string Listing(std::string const& folder) {
  std::set<std::string> names;
  for (auto const& entry : std::filesystem::directory_iterator(folder)) {
    names.insert(entry.path().filename());
  }
  std::string text;
  for (std::string const& name : names) text += (text.empty() ? "" : " ") + name;
  return text;
}
