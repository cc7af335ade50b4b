#pragma once

// What streams are measured by: their rules told again over a string of bytes.

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>

#include "QuillmereLib/streams/CUFileStream.h"

// The length that the system allows a file.
constexpr std::uint64_t kLongestFile = 1 << 18;

// What a stream should be. It is closed where it can neither read nor write.
struct StreamModel {
  std::string bytes;  // of the block or file, which a closed stream may know otherwise
  std::uint64_t length = 0;
  std::uint64_t position = 0;
  _CURange range = {0, 0};
  bool canRead = false;
  bool canWrite = false;

  bool IsOpen() const { return canRead || canWrite; }
  void Close() { canRead = canWrite = false; }

  std::uint64_t Place(long long offset, unsigned int origin) const {
    std::uint64_t const bases[] = {0, position, length};
    return origin < 3 ? bases[origin] + static_cast<std::uint64_t>(offset) : 0;
  }

  _CURange ReadRange(std::uint64_t size, long long offset, unsigned int origin) const {
    std::uint64_t const start = Place(offset, origin);
    std::uint64_t const end = range.location + range.length;
    if (origin > 2 || size == 0 || start < range.location || start >= end) return {0, 0};
    return {start, std::min(size, end - start)};
  }

  void SetLength(std::uint64_t wanted) {
    if (!canWrite || wanted > kLongestFile) return Close();
    bytes.resize(wanted);
    length = wanted;
    if (canRead) range = {0, length};
  }

  bool Write(std::string const& text, long long offset, unsigned int origin) {
    if (!canWrite) return false;
    std::uint64_t const target = Place(offset, origin);
    if (length < target + text.size()) SetLength(target + text.size());
    if (!canWrite || target > kLongestFile) return false;
    bytes.replace(target, text.size(), text);
    position = target + text.size();
    return true;
  }

  bool SetRange(_CURange const& wanted) {
    if (!canRead || wanted.location == CURange_NoLocation) return false;
    if (wanted.location + wanted.length > length) return false;
    range = wanted;
    return true;
  }

  void Open(unsigned int mode, unsigned int access) {
    bool const cuts = mode == CUStream_FileMode_Create || mode == CUStream_FileMode_Truncate;
    bool const changes = cuts || mode == CUStream_FileMode_Append;
    *this = {std::move(bytes)};
    if (mode == CUStream_FileMode_CreateNew || (changes && access == CUStream_FileAccess_Read)) {
      return;
    }
    if (cuts) bytes.clear();
    length = bytes.size();
    range = {0, length};
    if (mode == CUStream_FileMode_Append) position = length;
    canRead = access != CUStream_FileAccess_Write;
    canWrite = access != CUStream_FileAccess_Read;
  }
};
