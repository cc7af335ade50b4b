#include "platform/linux/FileNames.h"

#include <unicode/ustring.h>

#include <algorithm>
#include <cstring>

#include "platform/linux/Errors.h"

namespace {

constexpr std::size_t kLongestName = sizeof(FileName::bytes) - 1;

constexpr bool IsHighSurrogate(UniChar unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
constexpr bool IsSurrogate(UniChar unit) { return unit >= 0xD800 && unit <= 0xDFFF; }

// Takes the code point at `*index` and moves behind it. 0 for an unpaired surrogate.
char32_t NextCodePoint(UniChar const* units, UniCharCount count, UniCharCount* index) noexcept {
  UniChar const unit = units[(*index)++];
  if (!IsSurrogate(unit)) return unit;
  if (!IsHighSurrogate(unit) || *index == count) return 0;
  UniChar const second = units[(*index)++];
  if (!IsSurrogate(second) || IsHighSurrogate(second)) return 0;
  return 0x10000 + ((char32_t{unit} - 0xD800) << 10) + (char32_t{second} - 0xDC00);
}

// Writes one to four bytes of UTF-8 and gives their number.
std::size_t Encode(char32_t point, char* out) noexcept {
  if (point < 0x80) {
    out[0] = static_cast<char>(point);
    return 1;
  }
  std::size_t const size = point < 0x800 ? 2 : point < 0x10000 ? 3 : 4;
  for (std::size_t i = size - 1; i > 0; --i, point >>= 6) {
    out[i] = static_cast<char>(0x80 | (point & 0x3F));
  }
  out[0] = static_cast<char>((0xF00 >> size) | point);
  return size;
}

bool IsDots(FileName const& name) noexcept {
  return std::strcmp(name.bytes, ".") == 0 || std::strcmp(name.bytes, "..") == 0;
}

}  // namespace

OSErr FileNameFromUnits(UniChar const* units, UniCharCount count, FileName* name) noexcept {
  if (units == nullptr && count != 0) return paramErr;
  if (count == 0 || count > kLongestName) return bdNamErr;
  name->length = 0;
  for (UniCharCount index = 0; index < count;) {
    char32_t const point = NextCodePoint(units, count, &index);
    if (point == 0 || point == U':') return bdNamErr;
    char encoded[4];
    std::size_t const size = Encode(point == U'/' ? U':' : point, encoded);
    if (size > kLongestName - name->length) return bdNamErr;
    std::memcpy(name->bytes + name->length, encoded, size);
    name->length += size;
  }
  name->bytes[name->length] = '\0';
  return IsDots(*name) ? OSErr{bdNamErr} : OSErr{noErr};
}

bool UnitsFromFileName(char const* bytes, std::size_t length, HFSUniStr255* name) noexcept {
  constexpr std::size_t kMostUnits = sizeof name->unicode / sizeof *name->unicode;
  // No name takes more units than bytes.
  if (length > kMostUnits) return false;
  std::size_t count = 0;
  for (; count < length && static_cast<UInt8>(bytes[count]) < 0x80; ++count) {
    name->unicode[count] = static_cast<UInt8>(bytes[count]);
  }
  if (count < length) {
    UErrorCode error = U_ZERO_ERROR;
    int32_t added = 0;
    u_strFromUTF8(reinterpret_cast<UChar*>(name->unicode + count),
                  static_cast<int32_t>(kMostUnits - count), &added, bytes + count,
                  static_cast<int32_t>(length - count), &error);
    if (U_FAILURE(error)) return false;
    count += static_cast<std::size_t>(added);
  }
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
