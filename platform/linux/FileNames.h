#pragma once

// Names of entries between their UTF-16 form and the disk's, and paths made of them.

#include <CoreFoundation/CFBase.h>
#include <CoreServices/Files.h>

#include <cstddef>

// One name as the disk has it: UTF-8, ended by a null that `length` does not count.
struct FileName {
  std::size_t length;
  char bytes[256];
};

// Turns units into the disk's name, a slash becoming a colon. bdNamErr for a name that no entry can
// have: empty, "." or "..", with a colon (a slash on the disk), a null or an unpaired surrogate, or
// of more than 255 bytes. paramErr where `units` is null and `count` is not 0.
OSErr FileNameFromUnits(UniChar const* units, UniCharCount count, FileName* name) noexcept;

// The way back, from the `length` bytes of a name on the disk. False, with `name` spoilt, for one
// that is no valid UTF-8.
bool UnitsFromFileName(char const* bytes, std::size_t length, HFSUniStr255* name) noexcept;

// The status of a call that failed with `error` to give an entry a name.
OSErr NamingFailure(int error) noexcept;

// The length of the path in `ref`; 0 where it holds none that ends within it.
std::size_t PathLength(FSRef const& ref) noexcept;

// Copies a path of `length` bytes and its null, not the unused rest of the buffer. What the entry
// is counts as unknown then, and so it does after the next two.
void CopyRef(FSRef const& source, std::size_t length, FSRef* target) noexcept;

// Puts a slash where one is missing and `length` bytes behind the `*pathLength` bytes in `path`,
// and counts them in. bdNamErr, with the path as it was, where they do not fit.
OSErr AppendToPath(FSRef* path, std::size_t* pathLength, char const* bytes,
                   std::size_t length) noexcept;

// The entry `name` of the directory `folder`, existing or not. bdNamErr where the path is too long.
OSErr EntryInFolder(FSRef const& folder, FileName const& name, FSRef* entry,
                    std::size_t* entryLength) noexcept;
