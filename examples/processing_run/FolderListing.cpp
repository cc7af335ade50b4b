#include "FolderListing.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <system_error>

namespace {

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

std::string ReasonOf(int error) { return std::generic_category().message(error); }

}  // namespace

std::string LookAt(std::string const& path, Entry& entry) {
  struct stat link = {};
  struct stat target = {};
  if (lstat(path.c_str(), &link) != 0) return ReasonOf(errno);
  bool const isLink = S_ISLNK(link.st_mode);
  if (stat(path.c_str(), &target) != 0) {
    return (isLink ? "a link that leads nowhere: " : "") + ReasonOf(errno);
  }

  if (S_ISDIR(target.st_mode)) {
    entry.kind = isLink ? EntryKind::kLinkToFolder : EntryKind::kFolder;
  } else if (S_ISREG(target.st_mode)) {
    entry.kind = EntryKind::kFile;
  } else if (S_ISFIFO(target.st_mode)) {
    entry.kind = EntryKind::kFifo;
  } else if (S_ISSOCK(target.st_mode)) {
    entry.kind = EntryKind::kSocket;
  } else {
    entry.kind = EntryKind::kDevice;
  }
  entry.size = static_cast<unsigned long long>(target.st_size);
  return std::string();
}

std::string ListFolder(std::string const& path, std::vector<std::string>& names) {
  names.clear();
  int const descriptor = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (descriptor < 0) return ReasonOf(errno);
  std::unique_ptr<DIR, CloseFolder> const folder(fdopendir(descriptor));
  if (!folder) {
    int const error = errno;
    close(descriptor);
    return ReasonOf(error);
  }

  int error = 0;
  while (true) {
    errno = 0;
    dirent const* const entry = readdir(folder.get());
    if (entry == nullptr) {
      error = errno;
      break;
    }
    bool const isDots =
        std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0;
    if (!isDots) names.emplace_back(entry->d_name);
  }
  std::sort(names.begin(), names.end());
  return error == 0 ? std::string() : ReasonOf(error);
}

std::string WhyUnreadable(std::string const& path) {
  return access(path.c_str(), R_OK) == 0 ? std::string() : ReasonOf(errno);
}
