// Iterators over a directory. They read ahead into a buffer of their own, so that asking for one
// entry at a time costs no call of the system for each.

#include <CoreServices/Files.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include "platform/linux/Errors.h"
#include "platform/linux/FileNames.h"
#include "platform/linux/Handles.h"

struct __FSIterator {
  explicit __FSIterator(Descriptor opened) : directory(std::move(opened)) {}

  Descriptor const directory;
  std::size_t next = 0;  // where in the buffer the next entry stands
  std::size_t end = 0;
  alignas(dirent64) char buffer[32 * 1024];
};

namespace {

bool IsDots(char const* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Moves on to the next entry, of whatever name, in the buffer; null, with errFSNoMoreItems or a
// failure in `*status`, where there is none.
dirent64 const* Advance(FSIterator iterator, OSErr* status) {
  if (iterator->next == iterator->end) {
    ssize_t const read = Uninterrupted([&] {
      return getdents64(iterator->directory.Get(), iterator->buffer, sizeof iterator->buffer);
    });
    // A directory that is deleted meanwhile has no more entries.
    *status = read < 0 && errno != ENOENT ? StatusFromErrno(errno) : OSErr{errFSNoMoreItems};
    if (read <= 0) return nullptr;
    iterator->next = 0;
    iterator->end = static_cast<std::size_t>(read);
  }
  auto const* const entry = reinterpret_cast<dirent64 const*>(iterator->buffer + iterator->next);
  iterator->next += entry->d_reclen;
  return entry;
}

// Not every file system says the kind in its listing. False for an entry that is gone.
bool TellKind(FSIterator iterator, dirent64 const& entry, FSCatalogInfo* info) {
  bool isDirectory = entry.d_type == DT_DIR;
  if (entry.d_type == DT_UNKNOWN) {
    struct stat facts;
    if (fstatat(iterator->directory.Get(), entry.d_name, &facts, AT_SYMLINK_NOFOLLOW) != 0) {
      return false;
    }
    isDirectory = S_ISDIR(facts.st_mode);
  }
  info->nodeFlags = isDirectory ? UInt16{kFSNodeIsDirectoryMask} : UInt16{0};
  return true;
}

}  // namespace

OSErr FSOpenIterator(FSRef const* container, FSIteratorFlags iteratorFlags, FSIterator* iterator) {
  if (container == nullptr || PathLength(*container) == 0 || iteratorFlags != kFSIterateFlat ||
      iterator == nullptr) {
    return paramErr;
  }
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  Descriptor directory(Uninterrupted([&] { return open(container->path, kFlags); }));
  if (!directory.IsOpen()) return StatusFromErrno(errno);
  FSIterator const opened = new (std::nothrow) __FSIterator(std::move(directory));
  if (opened == nullptr) return memFullErr;
  *iterator = opened;
  return noErr;
}

OSErr FSGetCatalogInfoBulk(FSIterator iterator, ItemCount maximumObjects, ItemCount* actualObjects,
                           Boolean* containerChanged, FSCatalogInfoBitmap whichInfo,
                           FSCatalogInfo* catalogInfos, FSRef* refs, FSSpec* specs,
                           HFSUniStr255* names) {
  if (actualObjects == nullptr) return paramErr;
  *actualObjects = 0;
  bool const wantsKind = whichInfo == kFSCatInfoNodeFlags;
  if (iterator == nullptr || maximumObjects == 0 || refs != nullptr || specs != nullptr ||
      (whichInfo != kFSCatInfoNone && (!wantsKind || catalogInfos == nullptr))) {
    return paramErr;
  }
  if (containerChanged != nullptr) *containerChanged = false;
  HFSUniStr255 unwanted;
  while (*actualObjects < maximumObjects) {
    OSErr status = noErr;
    dirent64 const* const entry = Advance(iterator, &status);
    if (entry == nullptr) return status;
    HFSUniStr255* const name = names != nullptr ? names + *actualObjects : &unwanted;
    if (IsDots(entry->d_name) ||
        !UnitsFromFileName(entry->d_name, std::strlen(entry->d_name), name) ||
        (wantsKind && !TellKind(iterator, *entry, catalogInfos + *actualObjects))) {
      continue;
    }
    ++*actualObjects;
  }
  return noErr;
}

OSErr FSCloseIterator(FSIterator iterator) {
  if (iterator == nullptr) return paramErr;
  delete iterator;
  return noErr;
}
