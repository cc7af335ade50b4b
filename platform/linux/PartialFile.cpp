#include "platform/linux/PartialFile.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "platform/linux/Errors.h"

namespace {

// The way by which an open file is linked without the rights of an administrator.
std::string PathOfDescriptor(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

int ResultOf(int call) { return call == 0 ? 0 : errno; }

// The longest start of `name` that has at most `room` bytes and cuts no character of UTF-8.
std::string Shortened(std::string const& name, std::size_t room) {
  std::size_t length = std::min(name.size(), room);
  while (length > 0 && length < name.size() && (name[length] & 0xC0) == 0x80) --length;
  return name.substr(0, length);
}

// Takes the name by an empty file, which the renaming then replaces.
int ReserveAndRename(int fromFolder, char const* from, int toFolder, char const* to) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
  Descriptor const reserved(Uninterrupted([&] { return openat(toFolder, to, kFlags, 0600); }));
  if (!reserved.IsOpen()) return errno;
  if (renameat(fromFolder, from, toFolder, to) == 0) return 0;
  int const error = errno;
  unlinkat(toFolder, to, 0);
  return error;
}

}  // namespace

int RenameWithoutReplacing(int fromFolder, char const* from, int toFolder, char const* to,
                           CopyMeans const& means) {
  if (means.renameFlags) {
    if (renameat2(fromFolder, from, toFolder, to, RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
  }
  // Linking, too, fails where the name is taken. A volume without links is left with the last way,
  // in which a kill at the wrong moment leaves an empty file.
  if (linkat(fromFolder, from, toFolder, to, 0) != 0) {
    bool const noLinks = errno == EPERM || errno == EOPNOTSUPP || errno == ENOSYS;
    return noLinks ? ReserveAndRename(fromFolder, from, toFolder, to) : errno;
  }
  if (unlinkat(fromFolder, from, 0) == 0) return 0;
  int const error = errno;
  unlinkat(toFolder, to, 0);
  return error;
}

PartialFile::PartialFile(int folder, std::string name, CopyMeans const& means)
    : m_folder(folder), m_name(std::move(name)), m_means(means) {}

PartialFile::~PartialFile() {
  if (!m_hidden.empty()) unlinkat(m_folder, m_hidden.c_str(), 0);
}

int PartialFile::Create() {
  constexpr mode_t kPrivate = 0600;
  if (m_means.unnamedFiles) {
    constexpr int kFlags = O_RDWR | O_TMPFILE | O_CLOEXEC;
    m_file = Descriptor(Uninterrupted([&] { return openat(m_folder, ".", kFlags, kPrivate); }));
    if (m_file.IsOpen() && access(PathOfDescriptor(m_file.Get()).c_str(), F_OK) == 0) return 0;
  }
  return UnderHiddenName([&](char const* hidden) {
    constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC;
    m_file = Descriptor(Uninterrupted([&] { return openat(m_folder, hidden, kFlags, kPrivate); }));
    return m_file.IsOpen() ? 0 : -1;
  });
}

int PartialFile::CreateLink(char const* target) {
  return UnderHiddenName([&](char const* hidden) { return symlinkat(target, m_folder, hidden); });
}

int PartialFile::Publish() {
  int error = 0;
  if (m_hidden.empty()) {
    error = ResultOf(linkat(AT_FDCWD, PathOfDescriptor(m_file.Get()).c_str(), m_folder,
                            m_name.c_str(), AT_SYMLINK_FOLLOW));
  } else {
    // Some file systems over a network tell only now that writing has failed.
    if (m_file.IsOpen() && close(m_file.Release()) != 0 && errno != EINTR) return errno;
    error = RenameWithoutReplacing(m_folder, m_hidden.c_str(), m_folder, m_name.c_str(), m_means);
    if (error == 0) m_hidden.clear();
  }
  if (error == 0) m_state = State::Published;
  return error;
}

int PartialFile::PublishOver(bool keepOld) {
  int error = Publish();
  if (error != EEXIST) return error;
  if (m_hidden.empty()) {
    std::string const unnamed = PathOfDescriptor(m_file.Get());
    error = UnderHiddenName([&](char const* hidden) {
      return linkat(AT_FDCWD, unnamed.c_str(), m_folder, hidden, AT_SYMLINK_FOLLOW);
    });
    if (error != 0) return error;
  }
  if (keepOld && m_means.renameFlags && Swap() == 0) {
    m_state = State::Swapped;
    struct stat old;
    int const error = ResultOf(fstatat(m_folder, m_hidden.c_str(), &old, AT_SYMLINK_NOFOLLOW));
    if (error == 0 && !S_ISDIR(old.st_mode)) return 0;
    // What cannot be looked at is not given up: the destructor would delete it.
    Withdraw();
    return error != 0 ? error : EISDIR;
  }
  if (renameat(m_folder, m_hidden.c_str(), m_folder, m_name.c_str()) != 0) return errno;
  m_hidden.clear();
  m_state = State::Replaced;
  return 0;
}

void PartialFile::Withdraw() {
  if (m_state == State::Swapped) Swap();
  if (m_state == State::Published) unlinkat(m_folder, m_name.c_str(), 0);
  m_state = State::Private;
}

int PartialFile::Swap() const {
  return ResultOf(renameat2(m_folder, m_hidden.c_str(), m_folder, m_name.c_str(), RENAME_EXCHANGE));
}

// ".NAME.quillmere-XXXXXX.part": the start of the name, and six letters and digits of chance.
std::string PartialFile::MakeHiddenName() const {
  std::string chance = ".quillmere-";
  unsigned char bytes[6] = {};
  while (getrandom(bytes, sizeof bytes, 0) < 0 && errno == EINTR) continue;
  for (unsigned char const byte : bytes) chance += "abcdefghijklmnopqrstuvwxyz234567"[byte % 32];
  chance += ".part";
  long const longest = fpathconf(m_folder, _PC_NAME_MAX);
  std::size_t const limit = longest > 0 ? static_cast<std::size_t>(longest) : 255;
  std::size_t const room = limit > chance.size() ? limit - chance.size() - 1 : 0;
  return "." + Shortened(m_name, room) + chance;
}

// Makes an entry under hidden names until one of them is free.
template <class Make>
int PartialFile::UnderHiddenName(Make make) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    m_hidden = MakeHiddenName();
    if (make(m_hidden.c_str()) == 0) return 0;
    if (errno != EEXIST) break;
  }
  int const error = errno;
  m_hidden.clear();
  return error;
}
