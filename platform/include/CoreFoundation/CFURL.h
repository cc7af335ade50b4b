#pragma once

// URLs of files, and the URLs of what is mounted. All may be called from any thread.

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFBase.h>

typedef struct __CFURL const* CFURLRef;
typedef struct __CFURLEnumerator const* CFURLEnumeratorRef;
typedef struct __CFError* CFErrorRef;
struct FSRef;

enum CFURLPathStyle : CFIndex { kCFURLPOSIXPathStyle = 0 };

typedef CFOptionFlags CFURLEnumeratorOptions;
enum : CFURLEnumeratorOptions { kCFURLEnumeratorDefaultBehavior = 0 };

enum CFURLEnumeratorResult : CFIndex {
  kCFURLEnumeratorSuccess = 1,
  kCFURLEnumeratorEnd = 2,
  kCFURLEnumeratorError = 3
};

// Whether two objects, neither of them null, have the same value. URLs do if they name the same
// path, unit by unit, and both or neither a directory; strings if they hold the same units; of
// other kinds each object is equal to itself alone.
CF_INSIDE Boolean CFEqual(CFTypeRef first, CFTypeRef second);

// The URL of a path, which need not exist. Slashes at its end are taken off; it stays as it is
// otherwise, relative ones too. Null for an empty path, for a style other than
// kCFURLPOSIXPathStyle, or when memory runs out.
CF_INSIDE CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef path,
                                                 CFURLPathStyle style, Boolean isDirectory);

// The URL of an existing entry, as a directory if it is one. Null where nothing is there any more,
// for a path that is not UTF-8, or when memory runs out.
CF_INSIDE CFURLRef CFURLCreateFromFSRef(CFAllocatorRef allocator, FSRef const* ref);

// Stores a reference to the entry that the URL names, by the rules of FSPathMakeRef, and gives
// true; false, with `ref` as it was, where there is none, and for a path with a null unit or an
// unpaired surrogate.
CF_INSIDE Boolean CFURLGetFSRef(CFURLRef url, FSRef* ref);

// The path of the URL, without a slash at its end but for the root. Null for a style other than
// kCFURLPOSIXPathStyle.
CF_INSIDE CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle style);

// An enumerator of all volumes that are mounted at this moment, of every kind, each by the URL of
// its mount point as a directory. Those over which another is mounted are not among them. `options`
// is 0 and `propertyKeys` null, else the result is null, as when memory runs out. It belongs to one
// thread at a time.
CF_INSIDE CFURLEnumeratorRef CFURLEnumeratorCreateForMountedVolumes(CFAllocatorRef allocator,
                                                                    CFURLEnumeratorOptions options,
                                                                    CFArrayRef propertyKeys);

// Goes on to the next URL and stores it in `*url`, lent until the next call or the end of the
// enumerator; kCFURLEnumeratorSuccess. At the end `*url` stays as it is; kCFURLEnumeratorEnd, as
// often as it is asked. kCFURLEnumeratorError for a volume that has no URL, its mount point not
// being UTF-8, or when memory runs out; the next call goes on behind it. `error` is not written.
CF_INSIDE CFURLEnumeratorResult CFURLEnumeratorGetNextURL(CFURLEnumeratorRef enumerator,
                                                          CFURLRef* url, CFErrorRef* error);
