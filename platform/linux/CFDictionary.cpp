#include <CoreFoundation/CFDictionary.h>

#include <functional>
#include <string_view>
#include <vector>

#include "platform/linux/CFObject.h"
#include "platform/linux/CFStringObject.h"

namespace {

void const* RetainObject(CFAllocatorRef, void const* value) { return CFRetain(value); }

void ReleaseObject(CFAllocatorRef, void const* value) { CFRelease(value); }

// The bytes of a string's units if the object is one. The width is part of the text: strings of
// different widths are never equal.
CFStringRef AsString(void const* value) {
  return dynamic_cast<CFStringRef>(static_cast<CFObject const*>(value));
}
std::string_view BytesOf(CFStringRef string) {
  return {string->Narrow(),
          static_cast<std::size_t>(string->length) * (string->wide ? sizeof(UniChar) : 1)};
}

Boolean EqualObjects(void const* first, void const* second) {
  if (first == second) return true;
  CFStringRef const one = AsString(first);
  CFStringRef const other = AsString(second);
  return one != nullptr && other != nullptr && one->wide == other->wide &&
         BytesOf(one) == BytesOf(other);
}

CFHashCode HashOfAddress(void const* value) { return std::hash<void const*>()(value); }

CFHashCode HashOfObject(void const* value) {
  CFStringRef const string = AsString(value);
  return string != nullptr ? std::hash<std::string_view>()(BytesOf(string)) : HashOfAddress(value);
}

constexpr CFDictionaryKeyCallBacks kBorrowingKeys = {};
constexpr CFDictionaryValueCallBacks kBorrowingValues = {};

}  // namespace

CFDictionaryKeyCallBacks const kCFTypeDictionaryKeyCallBacks = {
    0, RetainObject, ReleaseObject, nullptr, EqualObjects, HashOfObject};
CFDictionaryValueCallBacks const kCFTypeDictionaryValueCallBacks = {0, RetainObject, ReleaseObject,
                                                                    nullptr, nullptr};

// Entries in the order in which they came, and an open table of their numbers by hash, which is at
// most half full. The table of a few entries is left out.
struct __CFDictionary final : CFObject {
  struct Entry {
    CFHashCode hash;
    void const* key;
    void const* value;
  };

  __CFDictionary(CFDictionaryKeyCallBacks const* keys, CFDictionaryValueCallBacks const* values)
      : keyCallBacks(keys != nullptr ? *keys : kBorrowingKeys),
        valueCallBacks(values != nullptr ? *values : kBorrowingValues) {}
  ~__CFDictionary() override {
    for (Entry const& entry : entries) {
      if (keyCallBacks.release != nullptr) keyCallBacks.release(nullptr, entry.key);
      ReleaseValue(entry.value);
    }
  }

  void const* RetainValue(void const* value) const {
    return valueCallBacks.retain != nullptr ? valueCallBacks.retain(nullptr, value) : value;
  }
  void ReleaseValue(void const* value) const {
    if (valueCallBacks.release != nullptr) valueCallBacks.release(nullptr, value);
  }

  CFHashCode HashOf(void const* key) const {
    return keyCallBacks.hash != nullptr ? keyCallBacks.hash(key) : HashOfAddress(key);
  }
  bool Holds(Entry const& entry, void const* key, CFHashCode hash) const {
    if (entry.key == key) return true;
    return entry.hash == hash && keyCallBacks.equal != nullptr &&
           keyCallBacks.equal(entry.key, key);
  }

  // The entry of `key`, or null.
  Entry* Find(void const* key, CFHashCode hash) {
    return const_cast<Entry*>(static_cast<__CFDictionary const*>(this)->Find(key, hash));
  }
  Entry const* Find(void const* key, CFHashCode hash) const {
    if (table.empty()) {
      for (Entry const& entry : entries) {
        if (Holds(entry, key, hash)) return &entry;
      }
      return nullptr;
    }
    for (std::size_t at = hash;; ++at) {
      std::uint32_t const number = table[at & (table.size() - 1)];
      if (number == 0) return nullptr;
      if (Holds(entries[number - 1], key, hash)) return &entries[number - 1];
    }
  }

  void EnterInTable(std::size_t index) {
    std::size_t at = entries[index].hash;
    while (table[at & (table.size() - 1)] != 0) ++at;
    table[at & (table.size() - 1)] = static_cast<std::uint32_t>(index + 1);
  }

  // Room for one entry more; false when memory runs out.
  bool Reserve() {
    constexpr std::size_t kMostWithoutTable = 8;
    std::size_t const count = entries.size();
    try {
      if (count == entries.capacity()) entries.reserve(count == 0 ? 2 : 2 * count);
      if (count < kMostWithoutTable || 2 * count < table.size()) return true;
      std::vector<std::uint32_t> larger(table.empty() ? 4 * kMostWithoutTable : 2 * table.size());
      table.swap(larger);
    } catch (...) {
      return false;
    }
    for (std::size_t i = 0; i < count; ++i) EnterInTable(i);
    return true;
  }

  // Adds an entry, whose key is not there, within what is reserved.
  void Append(void const* key, void const* value, CFHashCode hash) {
    void const* const kept =
        keyCallBacks.retain != nullptr ? keyCallBacks.retain(nullptr, key) : key;
    entries.push_back({hash, kept, RetainValue(value)});
    if (!table.empty()) EnterInTable(entries.size() - 1);
  }

  CFDictionaryKeyCallBacks const keyCallBacks;
  CFDictionaryValueCallBacks const valueCallBacks;
  std::vector<Entry> entries;
  std::vector<std::uint32_t> table;  // an index plus one, or 0; its size is a power of two
};

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, void const** keys, void const** values,
                                   CFIndex count, CFDictionaryKeyCallBacks const* keyCallBacks,
                                   CFDictionaryValueCallBacks const* valueCallBacks) {
  if (count < 0) return nullptr;
  __CFDictionary* const dictionary = MakeCFObject<__CFDictionary>(0, keyCallBacks, valueCallBacks);
  if (dictionary == nullptr) return nullptr;
  for (CFIndex i = 0; i < count; ++i) {
    CFHashCode const hash = dictionary->HashOf(keys[i]);
    if (dictionary->Find(keys[i], hash) != nullptr) continue;
    if (!dictionary->Reserve()) {
      dictionary->Release();
      return nullptr;
    }
    dictionary->Append(keys[i], values[i], hash);
  }
  return dictionary;
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex,
                                                 CFDictionaryKeyCallBacks const* keyCallBacks,
                                                 CFDictionaryValueCallBacks const* valueCallBacks) {
  return MakeCFObject<__CFDictionary>(0, keyCallBacks, valueCallBacks);
}

void CFDictionaryAddValue(CFMutableDictionaryRef dictionary, void const* key, void const* value) {
  CFHashCode const hash = dictionary->HashOf(key);
  if (dictionary->Find(key, hash) == nullptr && dictionary->Reserve()) {
    dictionary->Append(key, value, hash);
  }
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, void const* key, void const* value) {
  CFHashCode const hash = dictionary->HashOf(key);
  __CFDictionary::Entry* const entry = dictionary->Find(key, hash);
  if (entry == nullptr) {
    if (dictionary->Reserve()) dictionary->Append(key, value, hash);
    return;
  }
  // The new one is retained first: it may be the old one.
  void const* const old = entry->value;
  entry->value = dictionary->RetainValue(value);
  dictionary->ReleaseValue(old);
}

void const* CFDictionaryGetValue(CFDictionaryRef dictionary, void const* key) {
  auto const* const entry = dictionary->Find(key, dictionary->HashOf(key));
  return entry != nullptr ? entry->value : nullptr;
}

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) {
  return static_cast<CFIndex>(dictionary->entries.size());
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, void const** keys,
                                  void const** values) {
  for (auto const& entry : dictionary->entries) {
    if (keys != nullptr) *keys++ = entry.key;
    if (values != nullptr) *values++ = entry.value;
  }
}
