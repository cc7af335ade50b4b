#pragma once

// Looking into folders, by calls of the operating system.

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

// Gives the names in the folder, ordered by their bytes, as they stand on the disk. A link is never
// followed. Returns the reason of a failure, or an empty text; a failure on the way leaves the
// names that came before it.
std::string ListFolder(std::string const& path, std::vector<std::string>& names);

// Why the system would refuse to open the file for reading, or an empty text where it would not.
std::string WhyUnreadable(std::string const& path);
