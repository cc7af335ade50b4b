#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>
#include <CoreServices/Files.h>
#include <sys/stat.h>

#include <cstring>
#include <new>

#include "platform/linux/CFObject.h"
#include "platform/linux/CFStringObject.h"
#include "platform/linux/FileNames.h"
#include "platform/linux/MountTable.h"

struct __CFURL final : CFObject {
  // Takes over the caller's reference on the path.
  __CFURL(CFStringRef ownedPath, bool isOfDirectory)
      : path(ownedPath), isDirectory(isOfDirectory) {}
  ~__CFURL() override { CFRelease(path); }

  CFStringRef const path;
  bool const isDirectory;
};

struct __CFURLEnumerator final : CFObject {
  ~__CFURLEnumerator() override { SetCurrent(nullptr); }

  void SetCurrent(CFURLRef url) {
    if (current != nullptr) CFRelease(current);
    current = url;
  }

  std::vector<MountedVolume> table;
  std::size_t next = 0;
  CFURLRef current = nullptr;  // owned
};

namespace {

// Takes over the reference on `path`, which may be null.
CFURLRef CreateUrl(CFStringRef path, bool isDirectory) {
  if (path == nullptr) return nullptr;
  CFURLRef const url = MakeCFObject<__CFURL>(0, path, isDirectory);
  if (url == nullptr) CFRelease(path);
  return url;
}

CFStringRef CreateString(char const* bytes, std::size_t length) {
  return CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<UInt8 const*>(bytes),
                                 static_cast<CFIndex>(length), kCFStringEncodingUTF8, false);
}

CFStringRef CreateWithoutLastSlashes(CFStringRef path) {
  auto const lengthOf = [length = path->length](auto const* units) {
    CFIndex end = length;
    while (end > 1 && units[end - 1] == '/') --end;
    return end;
  };
  CFIndex const length = path->wide ? lengthOf(path->Wide()) : lengthOf(path->Narrow());
  return CFStringCreateWithSubstring(kCFAllocatorDefault, path, CFRangeMake(0, length));
}

bool AreEqual(CFStringRef first, CFStringRef second) {
  return CFStringCompare(first, second, 0) == kCFCompareEqualTo;
}

template <class Type>
Type const* As(CFTypeRef object) {
  return dynamic_cast<Type const*>(static_cast<CFObject const*>(object));
}

}  // namespace

Boolean CFEqual(CFTypeRef first, CFTypeRef second) {
  if (first == second) return true;
  auto const* const url = As<__CFURL>(first);
  auto const* const otherUrl = As<__CFURL>(second);
  if (url != nullptr && otherUrl != nullptr) {
    return url->isDirectory == otherUrl->isDirectory && AreEqual(url->path, otherUrl->path);
  }
  auto const* const string = As<__CFString>(first);
  auto const* const otherString = As<__CFString>(second);
  return string != nullptr && otherString != nullptr && AreEqual(string, otherString);
}

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef, CFStringRef path, CFURLPathStyle style,
                                       Boolean isDirectory) {
  if (style != kCFURLPOSIXPathStyle || CFStringGetLength(path) == 0) return nullptr;
  return CreateUrl(CreateWithoutLastSlashes(path), isDirectory);
}

CFURLRef CFURLCreateFromFSRef(CFAllocatorRef, FSRef const* ref) {
  std::size_t const length = ref != nullptr ? PathLength(*ref) : 0;
  struct stat facts;
  if (length == 0 || lstat(ref->path, &facts) != 0) return nullptr;
  return CreateUrl(CreateString(ref->path, length), S_ISDIR(facts.st_mode));
}

// A path is cut by a null unit in it, and what remains could be another entry's.
Boolean CFURLGetFSRef(CFURLRef url, FSRef* ref) {
  char path[sizeof ref->path + 1] = {};
  CFIndex const length = CFStringGetLength(url->path);
  CFIndex size = 0;
  CFIndex const converted = CFStringGetBytes(
      url->path, CFRangeMake(0, length), kCFStringEncodingUTF8, 0, false,
      reinterpret_cast<UInt8*>(path), static_cast<CFIndex>(sizeof path - 1), &size);
  return converted == length && std::strlen(path) == static_cast<std::size_t>(size) &&
         FSPathMakeRef(reinterpret_cast<UInt8 const*>(path), ref, nullptr) == noErr;
}

CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle style) {
  if (style != kCFURLPOSIXPathStyle) return nullptr;
  return static_cast<CFStringRef>(CFRetain(url->path));
}

CFURLEnumeratorRef CFURLEnumeratorCreateForMountedVolumes(CFAllocatorRef,
                                                          CFURLEnumeratorOptions options,
                                                          CFArrayRef propertyKeys) {
  if (options != kCFURLEnumeratorDefaultBehavior || propertyKeys != nullptr) return nullptr;
  auto* const enumerator = MakeCFObject<__CFURLEnumerator>(0);
  if (enumerator == nullptr) return nullptr;
  try {
    enumerator->table = ReadMountTable();
  } catch (std::bad_alloc const&) {
    CFRelease(enumerator);
    return nullptr;
  }
  return enumerator;
}

CFURLEnumeratorResult CFURLEnumeratorGetNextURL(CFURLEnumeratorRef enumerator, CFURLRef* url,
                                                CFErrorRef*) {
  auto* const state = const_cast<__CFURLEnumerator*>(enumerator);
  while (state->next < state->table.size()) {
    MountedVolume const& volume = state->table[state->next++];
    std::string const& path = volume.mountPoint;
    if (VolumeAt(state->table, path) != &volume) continue;
    state->SetCurrent(CreateUrl(CreateString(path.data(), path.size()), true));
    if (state->current == nullptr) return kCFURLEnumeratorError;
    *url = state->current;
    return kCFURLEnumeratorSuccess;
  }
  return kCFURLEnumeratorEnd;
}
