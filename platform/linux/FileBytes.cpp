#include "platform/linux/FileBytes.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "platform/linux/Errors.h"

namespace {

// Small enough that a slow disk is done with it soon after a cancel, and far too large for the
// calls to count.
constexpr off_t kPiece = 1 << 20;

// Local file systems take it up in large units, and larger ones make them search for memory: more
// than a tenth faster than what the kernel itself moves at a time, as measured.
constexpr std::size_t kBufferSize = 256 * 1024;

// Whether copy_file_range has nothing to offer on this file system but the copying through memory:
// it neither sits on a server that copies by itself nor is written in a program.
bool CopiesThroughMemory(int file) {
  struct statfs facts;
  if (fstatfs(file, &facts) != 0) return false;
  switch (static_cast<unsigned>(facts.f_type)) {
    case BTRFS_SUPER_MAGIC:
    case EXT4_SUPER_MAGIC:
    case F2FS_SUPER_MAGIC:
    case TMPFS_MAGIC:
    case XFS_SUPER_MAGIC:
      return true;
    default:
      return false;
  }
}

// Moves bytes between the same places of two files, by the fastest way that works between them.
class Mover {
 public:
  Mover(int source, int target, CopyMeans const& means)
      : m_source(source), m_target(target), m_means(means) {
    if (m_means.splice && CopiesThroughMemory(target)) m_means.copyRange = false;
  }

  // How many of `count` bytes at `place` have been copied: 0 at the end of the source, -1 with
  // errno for a failure. Whatever is wrong with the first two ways, even that they copy nothing,
  // the last is asked before it counts.
  ssize_t Move(off_t place, off_t count) {
    std::size_t const size = static_cast<std::size_t>(count);
    if (m_means.copyRange) {
      loff_t from = place;
      loff_t to = place;
      ssize_t const moved =
          Uninterrupted([&] { return copy_file_range(m_source, &from, m_target, &to, size, 0); });
      if (moved > 0) return moved;
      m_means.copyRange = false;
    }
    if (m_means.splice) {
      ssize_t const moved = MoveByPipe(place, size);
      if (moved > 0) return moved;
      m_means.splice = false;
    }
    return MoveByBuffer(place, size);
  }

 private:
  bool OpenPipe() {
    if (m_pipeExit.IsOpen()) return true;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    m_pipeExit = Descriptor(ends[0]);
    m_pipeEntry = Descriptor(ends[1]);
    // Refused to a user who has many pipes; a smaller one does too.
    fcntl(ends[1], F_SETPIPE_SZ, static_cast<int>(kBufferSize));
    return true;
  }

  // After a failure bytes can remain in the pipe, which is not used any more then.
  ssize_t MoveByPipe(off_t place, std::size_t count) {
    if (!OpenPipe()) return -1;
    loff_t from = place;
    loff_t to = place;
    ssize_t const got = Uninterrupted([&] {
      return splice(m_source, &from, m_pipeEntry.Get(), nullptr, std::min(count, kBufferSize), 0);
    });
    for (ssize_t left = got; left > 0;) {
      ssize_t const moved = Uninterrupted([&] {
        return splice(m_pipeExit.Get(), nullptr, m_target, &to, static_cast<std::size_t>(left), 0);
      });
      if (moved <= 0) return -1;
      left -= moved;
    }
    return got;
  }

  ssize_t MoveByBuffer(off_t place, std::size_t count) {
    if (m_buffer.empty()) m_buffer.resize(kBufferSize);
    ssize_t const got = Uninterrupted(
        [&] { return pread(m_source, m_buffer.data(), std::min(count, m_buffer.size()), place); });
    for (ssize_t done = 0; done < got;) {
      ssize_t const written = Uninterrupted([&] {
        return pwrite(m_target, m_buffer.data() + done, static_cast<std::size_t>(got - done),
                      place + done);
      });
      if (written <= 0) return -1;
      done += written;
    }
    return got;
  }

  int const m_source;
  int const m_target;
  CopyMeans m_means;  // what has not failed so far
  Descriptor m_pipeExit;
  Descriptor m_pipeEntry;
  std::vector<char> m_buffer;
};

struct Range {
  off_t begin;
  off_t end;
};

// The next range of data from `place` on, cut off at `size`; an empty one at the end where only a
// hole follows. A file system that knows no holes has data everywhere.
Range NextData(int source, off_t place, off_t size) {
  off_t const data = lseek(source, place, SEEK_DATA);
  if (data < 0 && errno == ENXIO) return {size, size};
  if (data < 0) return {place, size};
  off_t const hole = lseek(source, data, SEEK_HOLE);
  return {std::min(data, size), hole < 0 ? size : std::min(hole, size)};
}

bool IsLeftOut(int error) {
  return error == EOPNOTSUPP || error == EPERM || error == EACCES || error == EINVAL;
}

// Labels that the system gives by the place of a file do not travel with it; its capabilities do.
bool Travels(std::string_view name) {
  constexpr std::string_view kSecurity = "security.";
  return name.substr(0, kSecurity.size()) != kSecurity || name == "security.capability";
}

OSStatus CopyExtendedAttributes(int source, int target) {
  if (flistxattr(source, nullptr, 0) <= 0) return noErr;
  std::vector<char> names(XATTR_LIST_MAX);
  std::vector<char> value(XATTR_SIZE_MAX);
  ssize_t const length = flistxattr(source, names.data(), names.size());
  if (length < 0) return StatusFromErrno(errno);
  char const* const end = names.data() + length;
  for (char const* name = names.data(); name < end; name += std::string_view(name).size() + 1) {
    if (!Travels(name)) continue;
    ssize_t const size = fgetxattr(source, name, value.data(), value.size());
    if (size < 0) continue;
    if (fsetxattr(target, name, value.data(), static_cast<std::size_t>(size), 0) != 0 &&
        !IsLeftOut(errno)) {
      return StatusFromErrno(errno);
    }
  }
  return noErr;
}

}  // namespace

OSStatus CopyBytes(int source, int target, struct stat const& facts, CopyMeans const& means,
                   CopyObserver* observer) {
  off_t const end = facts.st_size;
  UInt64 const total = static_cast<UInt64>(end);
  // Looking for holes takes a while in some file systems.
  bool const canHaveHoles = facts.st_blocks < (end + 511) / 512;
  bool const isCloned = means.clone && end > 0 && ioctl(target, FICLONE, source) == 0;
  Mover mover(source, target, means);
  for (off_t place = isCloned ? end : 0; place < end;) {
    Range const data = canHaveHoles ? NextData(source, place, end) : Range{place, end};
    for (place = data.begin; place < data.end;) {
      ssize_t const moved = mover.Move(place, std::min(kPiece, data.end - place));
      if (moved < 0) return StatusFromErrno(errno);
      if (moved == 0) return eofErr;
      place += moved;
      if (!observer->Continues(total, static_cast<UInt64>(place))) return userCanceledErr;
    }
  }

  // Bytes that end in a hole are too few, and a clone of a file that has grown is too long.
  struct stat made;
  if (fstat(target, &made) != 0) return StatusFromErrno(errno);
  if (made.st_size == end) return noErr;
  return Uninterrupted([&] { return ftruncate(target, end); }) == 0 ? OSErr{noErr}
                                                                    : StatusFromErrno(errno);
}

OSStatus CopyAttributes(int source, int target, struct stat const& facts, bool withOwner) {
  bool const owned = !withOwner || fchown(target, facts.st_uid, facts.st_gid) == 0;
  OSStatus const status = CopyExtendedAttributes(source, target);
  if (status != noErr) return status;

  struct stat made;
  if (fstat(target, &made) != 0) return StatusFromErrno(errno);
  bool const sameOwner = owned && made.st_uid == facts.st_uid && made.st_gid == facts.st_gid;
  // Under another owner, the bits that lend the owner's rights would lend those of another.
  mode_t const bits = sameOwner ? 07777 : 01777;
  if (fchmod(target, facts.st_mode & bits) != 0 && !IsLeftOut(errno)) {
    return StatusFromErrno(errno);
  }
  timespec const times[] = {facts.st_atim, facts.st_mtim};
  if (futimens(target, times) != 0 && !IsLeftOut(errno)) return StatusFromErrno(errno);
  return noErr;
}
