#include "platform/linux/MountTable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <atomic>

#include "platform/linux/Handles.h"

namespace {

std::atomic<char const*> tableFile{"/proc/self/mountinfo"};

// Whether `path` is the mount point or lies below it.
bool LiesIn(std::string const& mountPoint, std::string const& path) {
  std::size_t const length = mountPoint.size() == 1 ? 0 : mountPoint.size();
  return path.compare(0, length, mountPoint, 0, length) == 0 &&
         (path.size() == length || path[length] == '/');
}

// The kernel lists what is mounted at or below the root of this process. Where that is a mere
// folder of a volume, as chroot can have it, the volume is what stands at "/".
void AddVolumeOfRoot(std::vector<MountedVolume>* volumes) {
  struct statx root;
  if (statx(AT_FDCWD, "/", 0, STATX_MNT_ID, &root) != 0 || (root.stx_mask & STATX_MNT_ID) == 0) {
    return;
  }
  constexpr int kNoParent = -1;
  volumes->push_back({static_cast<int>(root.stx_mnt_id), kNoParent,
                      makedev(root.stx_dev_major, root.stx_dev_minor), "/", ""});
}

}  // namespace

void SetMountTableFileForTests(char const* file) {
  tableFile = file != nullptr ? file : "/proc/self/mountinfo";
}

std::vector<MountedVolume> ReadMountTable() {
  std::vector<MountedVolume> volumes;
  MountTableHandle const table(mnt_new_table_from_file(tableFile.load()));
  MountIteratorHandle const iterator(mnt_new_iter(MNT_ITER_FORWARD));
  if (!table || !iterator) return volumes;
  libmnt_fs* entry = nullptr;
  while (mnt_table_next_fs(table.Get(), iterator.Get(), &entry) == 0) {
    char const* const target = mnt_fs_get_target(entry);
    char const* const source = mnt_fs_get_source(entry);
    if (target == nullptr) continue;
    volumes.push_back({mnt_fs_get_id(entry), mnt_fs_get_parent_id(entry), mnt_fs_get_devno(entry),
                       target, source != nullptr ? source : ""});
  }
  bool const hasRoot = std::any_of(volumes.begin(), volumes.end(),
                                   [](auto const& volume) { return volume.mountPoint == "/"; });
  if (!volumes.empty() && !hasRoot) AddVolumeOfRoot(&volumes);
  return volumes;
}

// The table is no list of what is visible: a mount can be hidden by another at its own place or
// above it. So the mounts are entered one from another, as the kernel does it.
MountedVolume const* VolumeAt(std::vector<MountedVolume> const& table, std::string const& path) {
  auto const isRoot = [&](MountedVolume const& volume) {
    return std::none_of(table.begin(), table.end(), [&](MountedVolume const& other) {
      return other.id == volume.parentId && other.id != volume.id;
    });
  };
  MountedVolume const* current = nullptr;
  for (std::size_t depth = 0; depth < table.size(); ++depth) {
    MountedVolume const* next = nullptr;
    for (MountedVolume const& volume : table) {
      bool const isCandidate =
          LiesIn(volume.mountPoint, path) && &volume != current &&
          (current != nullptr ? volume.parentId == current->id : isRoot(volume));
      // The shortest mount point is the first that the way down comes to.
      if (isCandidate && (next == nullptr || volume.mountPoint.size() < next->mountPoint.size())) {
        next = &volume;
      }
    }
    if (next == nullptr) break;
    current = next;
  }
  return current;
}
