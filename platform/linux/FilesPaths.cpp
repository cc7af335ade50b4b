#include <CoreServices/Files.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "platform/linux/Errors.h"
#include "platform/linux/FileNames.h"
#include "platform/linux/Handles.h"

namespace {

// Makes a path of `length` bytes absolute by the working directory.
OSErr MakeAbsolute(char const* text, std::size_t length, FSRef* entry, std::size_t* entryLength) {
  *entryLength = 0;
  if (text[0] != '/') {
    if (getcwd(entry->path, sizeof entry->path) == nullptr) {
      return errno == ERANGE ? OSErr{bdNamErr} : StatusFromErrno(errno);
    }
    *entryLength = std::strlen(entry->path);
  }
  return AppendToPath(entry, entryLength, text, length);
}

bool EndsInDots(FSRef const& entry, std::size_t length) {
  char const* const end = entry.path + length;
  return end[-1] == '.' && (end[-2] == '/' || (end[-2] == '.' && end[-3] == '/'));
}

// Replaces a path that ends in a link, "." or ".." by that of what it leads to.
OSErr FollowLeaf(FSRef* entry, std::size_t* length, struct stat* facts) {
  FSRef target;
  if (realpath(entry->path, target.path) == nullptr || lstat(target.path, facts) != 0) {
    return StatusFromErrno(errno);
  }
  *length = std::strlen(target.path);
  CopyRef(target, *length, entry);
  return noErr;
}

}  // namespace

OSStatus FSPathMakeRef(UInt8 const* path, FSRef* ref, Boolean* isDirectory) {
  if (ref == nullptr) return paramErr;
  if (path == nullptr || *path == '\0') return fnfErr;
  auto const* const text = reinterpret_cast<char const*>(path);
  std::size_t const givenLength = strnlen(text, sizeof ref->path);
  if (givenLength == sizeof ref->path) return bdNamErr;

  // A slash at the end would hide from lstat that a link stands before it.
  std::size_t length = givenLength;
  while (length > 1 && text[length - 1] == '/') --length;
  bool const mustBeDirectory = length < givenLength;

  FSRef entry;
  OSErr status = MakeAbsolute(text, length, &entry, &length);
  if (status != noErr) return status;
  struct stat facts;
  if (lstat(entry.path, &facts) != 0) return StatusFromErrno(errno);
  if (S_ISLNK(facts.st_mode) || EndsInDots(entry, length)) {
    status = FollowLeaf(&entry, &length, &facts);
    if (status != noErr) return status;
  }
  if (mustBeDirectory && !S_ISDIR(facts.st_mode)) return dirNFErr;

  CopyRef(entry, length, ref);
  if (isDirectory != nullptr) *isDirectory = S_ISDIR(facts.st_mode);
  return noErr;
}

OSErr FSCreateFileUnicode(FSRef const* parentRef, UniCharCount nameLength, UniChar const* name,
                          FSCatalogInfoBitmap whichInfo, FSCatalogInfo const* catalogInfo,
                          FSRef* newRef, FSSpec* newSpec) {
  if (parentRef == nullptr || whichInfo != kFSCatInfoNone || catalogInfo != nullptr ||
      newSpec != nullptr) {
    return paramErr;
  }
  FileName fileName;
  OSErr status = FileNameFromUnits(name, nameLength, &fileName);
  if (status != noErr) return status;
  FSRef entry;
  std::size_t length = 0;
  status = EntryInFolder(*parentRef, fileName, &entry, &length);
  if (status != noErr) return status;

  Descriptor const created(Uninterrupted(
      [&] { return open(entry.path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, 0666); }));
  // Some file systems refuse more names than others, in this way.
  if (!created.IsOpen()) return errno == EINVAL ? OSErr{bdNamErr} : StatusFromErrno(errno);
  if (newRef != nullptr) CopyRef(entry, length, newRef);
  return noErr;
}
