#pragma once

// Where the data of the user lie while the sweeps run.

#include <cstdlib>
#include <string>

#include "tests/support/TemporaryFolder.h"

// One folder a process, since GLib asks once. Puts it into the environment.
inline std::string const& UserData() {
  static TemporaryFolder const folder;
  static std::string const path = folder.Path();
  setenv("XDG_DATA_HOME", path.c_str(), 1);
  return path;
}
