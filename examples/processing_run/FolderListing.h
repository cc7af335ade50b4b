#pragma once

// Looking into folders: by the library, and by calls of the operating system where the kind of an
// entry, the reason of a failure, or a name that is no text has to be told.

#include <string>
#include <vector>

enum class EntryKind { kFile, kFolder, kLinkToFolder, kFifo, kSocket, kDevice };

struct Entry {
  EntryKind kind = EntryKind::kFile;
  unsigned long long size = 0;  // in bytes, of a file
};

// Says what stands at `path`; a link counts as what it leads to, unless that is a folder. Returns
// the reason of a failure, or an empty text.
std::string LookAt(std::string const& path, Entry& entry);

struct ListedEntry {
  std::string path;  // as it stands on the disk, below the path of the folder
  bool isFolder;     // and no link to one
};

// Gives the entries of the folder, ordered by the bytes of their paths. Returns the reason of a
// failure, or an empty text; a failure on the way leaves the entries that came before it.
std::string ListFolder(std::string const& path, std::vector<ListedEntry>& entries);

// Why the system would refuse to open the file for reading, or an empty text where it would not.
std::string WhyUnreadable(std::string const& path);
