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

// Whether a slash may stand behind the entry. A link that is not followed counts by its target.
bool LeadsToDirectory(FSRef const& entry, struct stat const& facts) {
  if (!S_ISLNK(facts.st_mode)) return S_ISDIR(facts.st_mode);
  struct stat target;
  return stat(entry.path, &target) == 0 && S_ISDIR(target.st_mode);
}

// The entry `name`, not yet existing, in `parentRef`, and the checks that creating has in common.
OSErr PrepareCreation(FSRef const* parentRef, UniCharCount nameLength, UniChar const* name,
                      FSCatalogInfoBitmap whichInfo, FSCatalogInfo const* catalogInfo,
                      FSSpec const* newSpec, FSRef* entry, std::size_t* length) {
  if (parentRef == nullptr || whichInfo != kFSCatInfoNone || catalogInfo != nullptr ||
      newSpec != nullptr) {
    return paramErr;
  }
  FileName fileName;
  OSErr const status = FileNameFromUnits(name, nameLength, &fileName);
  return status == noErr ? EntryInFolder(*parentRef, fileName, entry, length) : status;
}

}  // namespace

OSStatus FSPathMakeRef(UInt8 const* path, FSRef* ref, Boolean* isDirectory) {
  return FSPathMakeRefWithOptions(path, kFSPathMakeRefDefaultOptions, ref, isDirectory);
}

OSStatus FSPathMakeRefWithOptions(UInt8 const* path, OptionBits options, FSRef* ref,
                                  Boolean* isDirectory) {
  if (ref == nullptr || options > kFSPathMakeRefDoNotFollowLeafSymlink) return paramErr;
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
  bool const follows = options != kFSPathMakeRefDoNotFollowLeafSymlink;
  if ((follows && S_ISLNK(facts.st_mode)) || EndsInDots(entry, length)) {
    status = FollowLeaf(&entry, &length, &facts);
    if (status != noErr) return status;
  }
  if (mustBeDirectory && !LeadsToDirectory(entry, facts)) return dirNFErr;

  CopyRef(entry, length, ref);
  ref->isFile = S_ISREG(facts.st_mode);
  if (isDirectory != nullptr) *isDirectory = S_ISDIR(facts.st_mode);
  return noErr;
}

OSErr FSCreateFileUnicode(FSRef const* parentRef, UniCharCount nameLength, UniChar const* name,
                          FSCatalogInfoBitmap whichInfo, FSCatalogInfo const* catalogInfo,
                          FSRef* newRef, FSSpec* newSpec) {
  FSRef entry;
  std::size_t length = 0;
  OSErr const status = PrepareCreation(parentRef, nameLength, name, whichInfo, catalogInfo, newSpec,
                                       &entry, &length);
  if (status != noErr) return status;
  Descriptor const created(Uninterrupted(
      [&] { return open(entry.path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, 0666); }));
  if (!created.IsOpen()) return NamingFailure(errno);
  if (newRef != nullptr) CopyRef(entry, length, newRef);
  return noErr;
}

OSErr FSCreateDirectoryUnicode(FSRef const* parentRef, UniCharCount nameLength, UniChar const* name,
                               FSCatalogInfoBitmap whichInfo, FSCatalogInfo const* catalogInfo,
                               FSRef* newRef, FSSpec* newSpec, UInt32* newDirID) {
  if (newDirID != nullptr) return paramErr;
  FSRef entry;
  std::size_t length = 0;
  OSErr const status = PrepareCreation(parentRef, nameLength, name, whichInfo, catalogInfo, newSpec,
                                       &entry, &length);
  if (status != noErr) return status;
  if (mkdir(entry.path, 0777) != 0) return NamingFailure(errno);
  if (newRef != nullptr) CopyRef(entry, length, newRef);
  return noErr;
}
