#include "FolderListing.h"

#include <QuillmereLib/QuillmereLib.h>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

#include "ErrorWords.h"
#include "VisibleText.h"

namespace {

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

std::string ReasonOf(int error) { return std::generic_category().message(error); }

std::string ChildPath(std::string const& folder, char const* name) {
  return folder == "/" ? folder + name : folder + "/" + name;
}

// Adds what the library's listings pass over, names that are not UTF-8. They also take a folder
// that may not be read for an empty one: this gives the reason.
std::string AddNamesWithoutText(std::string const& path, std::vector<ListedEntry>& entries) {
  std::unique_ptr<DIR, CloseFolder> const folder(opendir(path.c_str()));
  if (!folder) return ReasonOf(errno);
  while (true) {
    errno = 0;
    dirent const* const entry = readdir(folder.get());
    if (entry == nullptr) return errno == 0 ? std::string() : ReasonOf(errno);
    std::string child = ChildPath(path, entry->d_name);
    if (StringOf(child) == nullptr) entries.push_back({std::move(child), false});
  }
}

void AddListed(CUSharedPtr<CUArray> const& listed, bool areFolders,
               std::vector<ListedEntry>& entries) {
  for (unsigned int i = 0; i < listed->Count(); ++i) {
    CUSharedPtr<CUObject> const object = listed->ObjectAtIndex(i);
    auto* const info = dynamic_cast<CUFileSysytemInfo*>(object.Get());
    if (info != nullptr) entries.push_back({Utf8Of(*info->GetFullName()), areFolders});
  }
}

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

std::string ListFolder(std::string const& path, std::vector<ListedEntry>& entries) {
  entries.clear();
  std::string problem = AddNamesWithoutText(path, entries);
  if (problem.empty()) {
    try {
      CUSharedPtr<CUStringMac> const text = StringOf(path);
      AddListed(CUDirectory::GetDirectories(text), true, entries);
      AddListed(CUDirectory::GetFiles(text), false, entries);
    } catch (unsigned int errorCode) {
      problem = ErrorWords(errorCode);
    }
  }
  std::sort(entries.begin(), entries.end(),
            [](ListedEntry const& one, ListedEntry const& other) { return one.path < other.path; });
  return problem;
}

std::string WhyUnreadable(std::string const& path) {
  return access(path.c_str(), R_OK) == 0 ? std::string() : ReasonOf(errno);
}
