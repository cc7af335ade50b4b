#pragma once

// What is mounted, as the kernel tells this process.

#include <sys/types.h>

#include <string>
#include <vector>

// One mount of a file system, or of a part of it.
struct MountedVolume {
  int id;
  int parentId;            // of the mount on which the mount point lies
  dev_t device;            // the file system's number
  std::string mountPoint;  // absolute, without links
  std::string source;      // the device as whoever mounted it named it, or any other text
};

// Reads the table afresh; the mounts in the order in which it lists them, and none where it cannot
// be read. Throws std::bad_alloc. As all here it may be called from any thread.
std::vector<MountedVolume> ReadMountTable();

// The mount in which a lookup of `path`, absolute and without links, ends: the deepest on the way,
// and of several at one place the last. Null where `path` lies outside all of them.
MountedVolume const* VolumeAt(std::vector<MountedVolume> const& table, std::string const& path);

// From now on `file`, written like /proc/self/mountinfo, is read in place of the kernel's table;
// null undoes it. `file` is borrowed.
void SetMountTableFileForTests(char const* file);
