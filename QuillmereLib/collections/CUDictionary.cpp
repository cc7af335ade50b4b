#include "QuillmereLib/collections/CUDictionary.h"

#include <new>

#include "QuillmereLib/core/Create.h"
#include "QuillmereLib/strings/CUNewline.h"
#include "QuillmereLib/strings/TextBuilder.h"

namespace {

// A copied string becomes the null string when memory runs out, which no key may be.
void CheckCopy(CUStringMac const& copy, CUStringMac const& source) {
  if (static_cast<CFStringRef>(copy) == nullptr && static_cast<CFStringRef>(source) != nullptr) {
    throw std::bad_alloc();
  }
}

template <class Entries>
Entries CopyOf(Entries const& source) {
  Entries copy(source);
  auto original = source.begin();
  for (auto const& entry : copy) CheckCopy(entry.first, (original++)->first);
  return copy;
}

}  // namespace

CUDictionary::CUDictionary(CUSharedPtr<CUDictionary> source) : m_map(CopyOf(source->m_map)) {}

CUDictionary::CUDictionary(CUDictionary const& other)
    : CUObject(other), m_map(CopyOf(other.m_map)) {}

CUDictionary::~CUDictionary() = default;

// Describes a copy of the entries: a value may change the dictionary while it describes itself.
CUSharedPtr<CUStringMac> CUDictionary::Description() {
  Entries const entries = CopyOf(m_map);
  TextBuilder text;
  text.Append("{");
  text.Append(CU_NEWLINE_CHAR);
  for (auto const& [key, value] : entries) {
    text.Append("\tKey:");
    text.Append(static_cast<CFStringRef>(key));
    text.Append(",\tVal:");
    text.AppendDescription(value.Get());
    text.Append(CU_NEWLINE_CHAR);
  }
  text.Append("}");
  return text.Text();
}

CUSharedPtr<CUArray> CUDictionary::AllKeys() {
  CUSharedPtr<CUMutableArray> const keys = new CUMutableArray;
  keys->GetInternalArray()->reserve(m_map.size());
  for (auto const& entry : m_map) {
    auto key = Create<CUStringMac>(entry.first);
    CheckCopy(*key, entry.first);
    keys->AddObject(std::move(key));
  }
  return keys;
}

CUDictionary::Entries::iterator CUDictionary::Find(CUStringMac const& key) {
  auto const found = m_map.lower_bound(key);
  return found != m_map.end() && !(key < found->first) ? found : m_map.end();
}

CUSharedPtr<CUObject> CUDictionary::ObjectForKey(CUSharedPtr<CUStringMac> key) {
  if (key == nullptr) return nullptr;
  auto const found = Find(*key);
  return found != m_map.end() ? found->second : nullptr;
}

CUMutableDictionary::~CUMutableDictionary() = default;

// A value that is let go may come back to this dictionary as it dies. So each operation below first
// brings the entries to their new state, and holds the old values until then.

void CUMutableDictionary::SetObjectForKey(CUSharedPtr<CUObject> object,
                                          CUSharedPtr<CUStringMac> key) {
  if (key != nullptr) Set(*key, std::move(object));
}

void CUMutableDictionary::Set(CUStringMac const& key, CUSharedPtr<CUObject> object) {
  // Made apart, so that a key without text for lack of memory never gets among the others. Where
  // the key is there already, the new value goes in its place.
  Entries added;
  auto const entry = added.emplace(key, std::move(object)).first;
  CheckCopy(entry->first, key);
  auto inserted = m_map.insert(added.extract(entry));
  if (!inserted.inserted) std::swap(inserted.position->second, inserted.node.mapped());
}

void CUMutableDictionary::RemoveObjectForKey(CUSharedPtr<CUStringMac> key) {
  if (key == nullptr) return;
  auto const found = Find(*key);
  if (found != m_map.end()) m_map.extract(found);
}

void CUMutableDictionary::RemoveAllObjects() {
  while (!m_map.empty()) {
    Entries removed;
    removed.swap(m_map);
  }
}
