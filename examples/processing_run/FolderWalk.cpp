#include "FolderWalk.h"

#include <utility>

#include "FolderListing.h"
#include "VisibleText.h"

namespace {

struct Pending {
  std::string path;
  bool given;  // by the user, not met on the way
};

std::string ChildPath(std::string const& folder, std::string const& name) {
  return folder == "/" ? folder + name : folder + "/" + name;
}

class Walk {
 public:
  explicit Walk(Failures& failures) : m_failures(failures) { m_result.files = new CUMutableArray; }

  // Keeps what is still to be visited in a list of its own, so that the depth of the folders costs
  // no stack.
  WalkResult Run(std::vector<std::string> const& paths) {
    for (auto path = paths.rbegin(); path != paths.rend(); ++path) {
      m_pending.push_back({*path, true});
    }
    while (!m_pending.empty()) {
      Pending const next = std::move(m_pending.back());
      m_pending.pop_back();
      Visit(next);
    }
    return m_result;
  }

 private:
  void Visit(Pending const& next) {
    CUSharedPtr<CUStringMac> const path = StringOf(next.path);
    if (path == nullptr) {
      m_failures.Add(next.path, "skipped, its name is not plain UTF-8");
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
        m_result.files->AddObject(path);
        m_result.bytes += entry.size;
        break;
      case EntryKind::kFolder:
        VisitFolder(next.path);
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

  void VisitFolder(std::string const& path) {
    std::vector<std::string> names;
    std::string const problem = ListFolder(path, names);
    if (!problem.empty()) m_failures.Add(path, "cannot be listed: " + problem);
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
      m_pending.push_back({ChildPath(path, *name), false});
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
