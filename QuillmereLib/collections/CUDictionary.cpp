#include "QuillmereLib/collections/CUDictionary.h"

#include <new>

#include "QuillmereLib/core/Create.h"
#include "QuillmereLib/strings/CUNewline.h"
#include "QuillmereLib/strings/TextBuilder.h"

namespace {

// A copied string becomes the null string when memory runs out, which no key may be.
bool IsWhole(CUStringMac const& copy, CUStringMac const& source) {
  return static_cast<CFStringRef>(copy) != nullptr || static_cast<CFStringRef>(source) == nullptr;
}
void CheckCopy(CUStringMac const& copy, CUStringMac const& source) {
  if (!IsWhole(copy, source)) throw std::bad_alloc();
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
  auto const place = m_map.lower_bound(key);
  if (place != m_map.end() && !(key < place->first)) {
    std::swap(place->second, object);
    return;
  }
  // A copy of the key that lacks its text, for lack of memory, is taken for one that is there. It
  // gets in only where there is no other.
  std::size_t const count = m_map.size();
  auto const entry = m_map.emplace_hint(place, key, std::move(object));
  if (m_map.size() != count) {
    if (IsWhole(entry->first, key)) return;
    m_map.erase(entry);
  }
  throw std::bad_alloc();
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
