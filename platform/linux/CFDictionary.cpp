#include <CoreFoundation/CFDictionary.h>
#include <sys/random.h>

#include <functional>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "platform/linux/CFDictionaryObject.h"
#include "platform/linux/CFStringObject.h"
#include "platform/linux/ItemList.h"
#include "platform/linux/ObjectStore.h"

namespace {

// The bytes of a string's units if the object is one. The width is part of the text: strings of
// different widths are never equal.
CFStringRef AsString(void const* value) {
  auto const* const object = static_cast<CFObject const*>(value);
  return typeid(*object) == typeid(__CFString) ? static_cast<CFStringRef>(object) : nullptr;
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

// A number below a prime that is drawn once a process.
std::uint64_t DrawPoint(std::uint64_t prime) {
  std::uint64_t drawn = 0;
  if (getrandom(&drawn, sizeof drawn, GRND_NONBLOCK) != sizeof drawn) {
    drawn = reinterpret_cast<std::uintptr_t>(&drawn);
  }
  return drawn % prime;
}

// The polynomial of the bytes at that point. So whoever writes a document cannot choose attributes
// that meet in the table.
CFHashCode HashOfBytes(std::string_view bytes) {
  __extension__ using Product = unsigned __int128;
  constexpr std::uint64_t kPrime = (std::uint64_t{1} << 61) - 1;
  static std::uint64_t const point = DrawPoint(kPrime);
  std::uint64_t hash = 1;
  for (char const c : bytes) {
    hash = static_cast<std::uint64_t>((Product{hash} * point + static_cast<unsigned char>(c)) %
                                      kPrime);
  }
  return hash;
}

CFHashCode HashOfObject(void const* value) {
  CFStringRef const string = AsString(value);
  return string != nullptr ? HashOfBytes(BytesOf(string)) : HashOfAddress(value);
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
  static constexpr std::size_t kMostWithoutTable = 8;

  struct Entry {
    void const* key;
    void const* value;
  };

  // `room` is that behind the object.
  __CFDictionary(CFDictionaryKeyCallBacks const& keys, CFDictionaryValueCallBacks const& values,
                 std::size_t room)
      : retainKey(keys.retain),
        releaseKey(keys.release),
        equal(keys.equal),
        hash(keys.hash != nullptr ? keys.hash : HashOfAddress),
        retainValue(values.retain),
        releaseValue(values.release),
        entries(this + 1, room) {}
  ~__CFDictionary() override {
    for (Entry const& entry : entries) {
      if (releaseKey != nullptr) releaseKey(nullptr, entry.key);
      if (releaseValue != nullptr) releaseValue(nullptr, entry.value);
    }
  }

  bool Holds(Entry const& entry, void const* key) const {
    return entry.key == key || (equal != nullptr && equal(entry.key, key));
  }

  // The entry of `key`, or null.
  Entry* Find(void const* key) {
    return const_cast<Entry*>(static_cast<__CFDictionary const*>(this)->Find(key));
  }
  Entry const* Find(void const* key) const {
    if (table.empty()) {
      for (Entry const& entry : entries) {
        if (Holds(entry, key)) return &entry;
      }
      return nullptr;
    }
    for (std::size_t at = hash(key);; ++at) {
      std::uint32_t const number = table[at & (table.size() - 1)];
      if (number == 0) return nullptr;
      if (Holds(entries[number - 1], key)) return &entries[number - 1];
    }
  }

  void EnterInTable(std::size_t index) {
    std::size_t at = hash(entries[index].key);
    while (table[at & (table.size() - 1)] != 0) ++at;
    table[at & (table.size() - 1)] = static_cast<std::uint32_t>(index + 1);
  }

  // Room for one entry more; false when memory runs out.
  bool Reserve() {
    std::size_t const count = entries.size();
    if (!entries.Reserve(1)) return false;
    if (count < kMostWithoutTable || 2 * count < table.size()) return true;
    try {
      std::vector<std::uint32_t> larger(table.empty() ? 4 * kMostWithoutTable : 2 * table.size());
      table.swap(larger);
    } catch (...) {
      return false;
    }
    for (std::size_t i = 0; i < count; ++i) EnterInTable(i);
    return true;
  }

  // Adds an entry, whose key is not there, within what is reserved.
  void Append(void const* key, void const* value) {
    entries.Append({retainKey != nullptr ? retainKey(nullptr, key) : key,
                    retainValue != nullptr ? retainValue(nullptr, value) : value});
    if (!table.empty()) EnterInTable(entries.size() - 1);
  }

  // Adds what is not there; false when memory runs out.
  bool Add(void const* key, void const* value) {
    if (Find(key) != nullptr) return true;
    if (!Reserve()) return false;
    Append(key, value);
    return true;
  }

  decltype(CFDictionaryKeyCallBacks::retain) const retainKey;
  decltype(CFDictionaryKeyCallBacks::release) const releaseKey;
  decltype(CFDictionaryKeyCallBacks::equal) const equal;
  decltype(CFDictionaryKeyCallBacks::hash) const hash;
  decltype(CFDictionaryValueCallBacks::retain) const retainValue;
  decltype(CFDictionaryValueCallBacks::release) const releaseValue;
  ItemList<Entry> entries;
  std::vector<std::uint32_t> table;  // an index plus one, or 0; its size is a power of two
};

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex capacity,
                                                 CFDictionaryKeyCallBacks const* keyCallBacks,
                                                 CFDictionaryValueCallBacks const* valueCallBacks) {
  std::size_t const room = RoomBehind(capacity);
  return MakeCFObject<__CFDictionary>(
      room * sizeof(__CFDictionary::Entry),
      keyCallBacks != nullptr ? *keyCallBacks : kBorrowingKeys,
      valueCallBacks != nullptr ? *valueCallBacks : kBorrowingValues, room);
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, void const** keys, void const** values,
                                   CFIndex count, CFDictionaryKeyCallBacks const* keyCallBacks,
                                   CFDictionaryValueCallBacks const* valueCallBacks) {
  if (count < 0) return nullptr;
  __CFDictionary* const dictionary =
      CFDictionaryCreateMutable(allocator, count, keyCallBacks, valueCallBacks);
  if (dictionary == nullptr) return nullptr;
  for (CFIndex i = 0; i < count; ++i) {
    if (!dictionary->Add(keys[i], values[i])) {
      dictionary->Release();
      return nullptr;
    }
  }
  return dictionary;
}

CFDictionaryRef CreateStoredDictionary(ObjectStore& store, void const** keys, void const** values,
                                       std::size_t count) {
  constexpr CFDictionaryKeyCallBacks kBorrowedObjects = {0,       nullptr,      nullptr,
                                                         nullptr, EqualObjects, HashOfObject};
  if (count <= __CFDictionary::kMostWithoutTable) {
    auto* const dictionary = store.Make<__CFDictionary>(count * sizeof(__CFDictionary::Entry),
                                                        kBorrowedObjects, kBorrowingValues, count);
    for (std::size_t i = 0; dictionary != nullptr && i < count; ++i) {
      dictionary->Append(keys[i], values[i]);
    }
    return dictionary;
  }
  CFDictionaryRef const dictionary = CFDictionaryCreate(
      nullptr, keys, values, static_cast<CFIndex>(count), &kBorrowedObjects, &kBorrowingValues);
  if (dictionary == nullptr || store.Keep(dictionary)) return dictionary;
  dictionary->Release();
  return nullptr;
}

void CFDictionaryAddValue(CFMutableDictionaryRef dictionary, void const* key, void const* value) {
  dictionary->Add(key, value);
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, void const* key, void const* value) {
  __CFDictionary::Entry* const entry = dictionary->Find(key);
  if (entry == nullptr) {
    dictionary->Add(key, value);
    return;
  }
  // The new one is retained first: it may be the old one.
  void const* const old = entry->value;
  entry->value =
      dictionary->retainValue != nullptr ? dictionary->retainValue(nullptr, value) : value;
  if (dictionary->releaseValue != nullptr) dictionary->releaseValue(nullptr, old);
}

void const* CFDictionaryGetValue(CFDictionaryRef dictionary, void const* key) {
  auto const* const entry = dictionary->Find(key);
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
