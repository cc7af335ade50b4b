#include "FolderWalk.h"

#include <utility>

#include "FolderListing.h"
#include "StopRequest.h"
#include "VisibleText.h"

namespace {

struct Pending {
  std::string path;
  std::string place;  // below the output folder
  bool given;         // by the user, not met on the way
  bool isFolder;      // known already
};

std::string NameOf(std::string const& path) { return path.substr(path.rfind('/') + 1); }

// A given path goes to the output under its name. One without a name of its own, such as "..", goes
// there with what is in it.
std::string PlaceOf(std::string const& givenPath) {
  std::string const name = NameOf(givenPath);
  return name == "." || name == ".." ? std::string() : name;
}

class Walk {
 public:
  explicit Walk(Failures& failures) : m_failures(failures) {}

  // Keeps what is still to be visited in a list of its own, so that the depth of the folders costs
  // no stack.
  WalkResult Run(std::vector<std::string> const& paths) {
    for (auto path = paths.rbegin(); path != paths.rend(); ++path) {
      m_pending.push_back({*path, PlaceOf(*path), true, false});
    }
    while (!m_pending.empty() && !StopRequested()) {
      Pending const next = std::move(m_pending.back());
      m_pending.pop_back();
      Visit(next);
    }
    m_result.stopped = !m_pending.empty();
    return std::move(m_result);
  }

 private:
  void Visit(Pending const& next) {
    CUSharedPtr<CUStringMac> const path = StringOf(next.path);
    if (path == nullptr) {
      m_failures.Add(next.path, "skipped, its name is not plain UTF-8");
      return;
    }
    if (next.isFolder) {
      VisitFolder(next);
      return;
    }
    Entry entry;
    std::string const problem = LookAt(next.path, entry);
    if (!problem.empty()) {
      m_failures.Add(next.path, problem);
      return;
    }

    switch (entry.kind) {
      case EntryKind::kFile:
        m_result.files.push_back(new FileTask(path, next.place));
        m_result.bytes += entry.size;
        break;
      case EntryKind::kFolder:
        VisitFolder(next);
        break;
      case EntryKind::kLinkToFolder:
        ++m_result.linksToFolders;
        if (next.given) {
          m_failures.Add(next.path, "skipped, a link to a folder is not followed; name the folder");
        }
        break;
      case EntryKind::kFifo:
        m_failures.Add(next.path, "skipped, a FIFO and not a file");
        break;
      case EntryKind::kSocket:
        m_failures.Add(next.path, "skipped, a socket and not a file");
        break;
      case EntryKind::kDevice:
        m_failures.Add(next.path, "skipped, a device and not a file");
        break;
    }
  }

  void VisitFolder(Pending const& folder) {
    if (!folder.place.empty()) m_result.folders.push_back(folder.place);
    std::vector<ListedEntry> entries;
    std::string const problem = ListFolder(folder.path, entries);
    if (!problem.empty()) m_failures.Add(folder.path, "cannot be listed: " + problem);
    std::string const place = folder.place.empty() ? folder.place : folder.place + "/";
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
      m_pending.push_back({entry->path, place + NameOf(entry->path), false, entry->isFolder});
    }
  }

  Failures& m_failures;
  std::vector<Pending> m_pending;  // the next one last
  WalkResult m_result;
};

}  // namespace

WalkResult WalkPaths(std::vector<std::string> const& paths, Failures& failures) {
  return Walk(failures).Run(paths);
}
