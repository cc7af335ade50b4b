#pragma once

// Dictionaries of pointers by pointers. Immutable ones may be read by any number of threads; a
// mutable one belongs to one thread at a time. A key stands in a dictionary once. Makers return
// null when memory runs out.

#include <CoreFoundation/CFBase.h>

typedef struct __CFDictionary* CFMutableDictionaryRef;

typedef unsigned long CFHashCode;

// What a dictionary does to a key that enters or leaves it, and how it tells keys apart. Null
// members do nothing; without `equal` a key is equal to itself alone, and without `hash` its
// address counts.
struct CFDictionaryKeyCallBacks {
  CFIndex version;
  void const* (*retain)(CFAllocatorRef allocator, void const* value);
  void (*release)(CFAllocatorRef allocator, void const* value);
  CFStringRef (*copyDescription)(void const* value);
  Boolean (*equal)(void const* first, void const* second);
  CFHashCode (*hash)(void const* value);
};

// What a dictionary does to a value that enters or leaves it. Null members do nothing.
struct CFDictionaryValueCallBacks {
  CFIndex version;
  void const* (*retain)(CFAllocatorRef allocator, void const* value);
  void (*release)(CFAllocatorRef allocator, void const* value);
  CFStringRef (*copyDescription)(void const* value);
  Boolean (*equal)(void const* first, void const* second);
};

// Keys are objects of the seam, retained while they are in the dictionary. Strings are equal if
// they hold the same units; of other kinds each object is equal to itself alone.
CF_INSIDE CFDictionaryKeyCallBacks const kCFTypeDictionaryKeyCallBacks;

// Values are objects of the seam, retained while they are in the dictionary.
CF_INSIDE CFDictionaryValueCallBacks const kCFTypeDictionaryValueCallBacks;

// An immutable dictionary of `count` keys and their values; of a key that comes twice the first
// counts. Null callbacks: what they are for is borrowed.
CF_INSIDE CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, void const** keys,
                                             void const** values, CFIndex count,
                                             CFDictionaryKeyCallBacks const* keyCallBacks,
                                             CFDictionaryValueCallBacks const* valueCallBacks);

// An empty dictionary that grows without bound; `capacity` is a guess at its size.
CF_INSIDE CFMutableDictionaryRef CFDictionaryCreateMutable(
    CFAllocatorRef allocator, CFIndex capacity, CFDictionaryKeyCallBacks const* keyCallBacks,
    CFDictionaryValueCallBacks const* valueCallBacks);

// Adds a value by a key that is not there; by one that is, nothing changes. Out of memory, the
// dictionary stays as it was.
CF_INSIDE void CFDictionaryAddValue(CFMutableDictionaryRef dictionary, void const* key,
                                    void const* value);

// Adds a value by a key, or puts it in the place of the one that is there, whose key stays. Out of
// memory, the dictionary stays as it was.
CF_INSIDE void CFDictionarySetValue(CFMutableDictionaryRef dictionary, void const* key,
                                    void const* value);

// The value by `key`, lent, or null where there is none.
CF_INSIDE void const* CFDictionaryGetValue(CFDictionaryRef dictionary, void const* key);

// The number of keys.
CF_INSIDE CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);

// Stores all keys and their values, lent, in the order in which the keys came in. Either array may
// be null, else it has room for as many as CFDictionaryGetCount says.
CF_INSIDE void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, void const** keys,
                                            void const** values);
