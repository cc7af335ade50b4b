#pragma once

// A file that comes into being beside its destination and takes its name in one step.

#include <string>

#include "platform/linux/Handles.h"

// What the system has to offer beyond reading, writing, linking and renaming. All of it is tried,
// and what a volume lacks is done in another way. Tests do without some.
struct CopyMeans {
  bool clone = true;         // FICLONE
  bool copyRange = true;     // copy_file_range
  bool splice = true;        // splice by way of a pipe
  bool unnamedFiles = true;  // O_TMPFILE
  bool renameFlags = true;   // renameat2 that does not replace, or swaps
};

// Renames an entry that is no directory, unless the new name is taken. 0 or an errno.
int RenameWithoutReplacing(int fromFolder, char const* from, int toFolder, char const* to,
                           CopyMeans const& means);

// Until it is published the file has no name where the volume allows it, so that nothing remains of
// it when the process is killed, else a hidden one. The destructor takes away what was not
// published. Calls give 0 or an errno.
class PartialFile {
 public:
  // The entry `name` of the open directory `folder`, which is lent.
  PartialFile(int folder, std::string name, CopyMeans const& means);
  PartialFile(PartialFile const&) = delete;
  PartialFile& operator=(PartialFile const&) = delete;
  ~PartialFile();

  // Makes the file, empty, for this user alone; or a symbolic link in its place.
  int Create();
  int CreateLink(char const* target);

  // Its descriptor, for reading and writing; -1 for a link.
  int Get() const { return m_file.Get(); }

  // Gives it its name: EEXIST where that is taken.
  int Publish();

  // Gives it its name, from the entry that has it, if any, and which must be no directory. With
  // `keepOld` the old entry is put by until the destructor, where the volume allows it.
  int PublishOver(bool keepOld);

  // After a publication: takes the name from it again, and gives it back to an old entry that was
  // put by. Where an old one is gone for good, all stays.
  void Withdraw();

 private:
  enum class State { Private, Published, Swapped, Replaced };

  std::string MakeHiddenName() const;
  template <class Make>
  int UnderHiddenName(Make make);
  int Swap() const;

  int const m_folder;
  std::string const m_name;
  CopyMeans const m_means;
  std::string m_hidden;  // empty where nothing stands under a hidden name
  Descriptor m_file;
  State m_state = State::Private;
};
