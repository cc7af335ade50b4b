#include "platform/linux/FileNames.h"

#include <algorithm>
#include <cstring>

#include "platform/linux/Errors.h"
#include "platform/linux/Utf8.h"

namespace {

constexpr std::size_t kLongestName = sizeof(FileName::bytes) - 1;

bool IsDots(FileName const& name) noexcept {
  return std::strcmp(name.bytes, ".") == 0 || std::strcmp(name.bytes, "..") == 0;
}

}  // namespace

OSErr FileNameFromUnits(UniChar const* units, UniCharCount count, FileName* name) noexcept {
  if (units == nullptr && count != 0) return paramErr;
  if (count == 0 || count > kLongestName) return bdNamErr;
  UniChar onDisk[kLongestName];
  for (UniCharCount i = 0; i < count; ++i) {
    if (units[i] == 0 || units[i] == ':') return bdNamErr;
    onDisk[i] = units[i] == '/' ? UniChar{':'} : units[i];
  }
  CFIndex const length = static_cast<CFIndex>(count);
  CFIndex size = 0;
  auto* const bytes = reinterpret_cast<UInt8*>(name->bytes);
  if (EncodeUtf8(onDisk, length, bytes, kLongestName, &size) < length) return bdNamErr;
  name->length = static_cast<std::size_t>(size);
  name->bytes[size] = '\0';
  return IsDots(*name) ? OSErr{bdNamErr} : OSErr{noErr};
}

bool UnitsFromFileName(char const* bytes, std::size_t length, HFSUniStr255* name) noexcept {
  constexpr CFIndex kMostUnits = sizeof name->unicode / sizeof *name->unicode;
  // No name takes more units than bytes.
  if (length > std::size_t{kMostUnits}) return false;
  CFIndex const count = DecodeUtf8(reinterpret_cast<UInt8 const*>(bytes),
                                   static_cast<CFIndex>(length), name->unicode, kMostUnits);
  if (count < 0) return false;
  name->length = static_cast<UInt16>(count);
  std::replace(name->unicode, name->unicode + count, UniChar{':'}, UniChar{'/'});
  return true;
}

// Some file systems refuse more names than others, in the way of a bad argument.
OSErr NamingFailure(int error) noexcept {
  return error == EINVAL ? OSErr{bdNamErr} : StatusFromErrno(error);
}

std::size_t PathLength(FSRef const& ref) noexcept {
  std::size_t const length = strnlen(ref.path, sizeof ref.path);
  return length < sizeof ref.path ? length : 0;
}

void CopyRef(FSRef const& source, std::size_t length, FSRef* target) noexcept {
  std::memcpy(target->path, source.path, length + 1);
  target->isFile = false;
}

OSErr AppendToPath(FSRef* path, std::size_t* pathLength, char const* bytes,
                   std::size_t length) noexcept {
  std::size_t end = *pathLength;
  bool const needsSlash = end > 0 && path->path[end - 1] != '/';
  if (length + needsSlash >= sizeof path->path - end) return bdNamErr;
  if (needsSlash) path->path[end++] = '/';
  std::memcpy(path->path + end, bytes, length);
  path->path[end + length] = '\0';
  path->isFile = false;
  *pathLength = end + length;
  return noErr;
}

OSErr EntryInFolder(FSRef const& folder, FileName const& name, FSRef* entry,
                    std::size_t* entryLength) noexcept {
  *entryLength = PathLength(folder);
  if (*entryLength == 0) return paramErr;
  CopyRef(folder, *entryLength, entry);
  return AppendToPath(entry, entryLength, name.bytes, name.length);
}
