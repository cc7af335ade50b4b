#pragma once

// Real mounts, in a child process that has a mount table of its own: nothing is left behind.

#include <sched.h>
#include <sys/mount.h>

#include <string>

// Call it in the child. False where this user may not mount.
inline bool OwnMountTable() {
  return unshare(CLONE_NEWNS) == 0 &&
         mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

inline bool MountMemory(std::string const& at, std::string const& options = "size=1m") {
  return mount("memory", at.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

inline bool MountBind(std::string const& what, std::string const& at) {
  return mount(what.c_str(), at.c_str(), nullptr, MS_BIND, nullptr) == 0;
}
