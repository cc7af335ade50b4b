#pragma once

// CUDictionary, which maps string keys to objects in the order of the keys, and
// CUMutableDictionary, which can be changed.

#include <functional>
#include <map>
#include <utility>

#include "QuillmereLib/collections/CUArray.h"
#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUObjectAllocator.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/strings/CUStringMac.h"

// Owns its keys, which are copies, and shares its values, of which null is a legal one. Keys stand
// in the order of CUStringMac's operator<, and two that the collation of the locale calls equal are
// one key, even with different characters; keys that differ in case are two. A key must be text:
// the null string has no place in that order, and may stand for any other key. There is no lock;
// only std::bad_alloc is thrown, and nothing has changed then.
class QUILLMERE_API CUDictionary : public CUObject {
 public:
  CUDictionary() = default;

  // Holds copies of the keys and the same objects. `source` must not be null.
  CUDictionary(CUSharedPtr<CUDictionary> source);
  CUDictionary(CUDictionary const& other);

  // Assigns nothing: a dictionary is copied by construction only.
  CUDictionary& operator=(CUDictionary const&) { return *this; }
  using CUObject::operator=;

  ~CUDictionary() override;

  // A line "Key:", key, comma, tab, "Val:", the value's description for each entry, behind a tab,
  // between braces; "<NULL>" for a null value.
  CUSharedPtr<CUStringMac> Description() override;

  // Entries with a null value count.
  unsigned int Count() { return static_cast<unsigned int>(m_map.size()); }

  // A new array, never null, of new strings with the keys in their order; it is a CUMutableArray.
  CUSharedPtr<CUArray> AllKeys();

  // Null for a null or missing key, and where null is the value.
  CUSharedPtr<CUObject> ObjectForKey(CUSharedPtr<CUStringMac> key);

 protected:
  // Entries come and go with the elements of documents, by the million, as objects do.
  using Entries = std::map<CUStringMac, CUSharedPtr<CUObject>, std::less<CUStringMac>,
                           CUObjectAllocator<std::pair<CUStringMac const, CUSharedPtr<CUObject>>>>;

  // The entry of `key`, or the end.
  Entries::iterator Find(CUStringMac const& key);

  Entries m_map;
};

class QUILLMERE_API CUMutableDictionary : public CUDictionary {
 public:
  CUMutableDictionary() = default;
  CUMutableDictionary(CUSharedPtr<CUDictionary> source) : CUDictionary(std::move(source)) {}
  CUMutableDictionary(CUMutableDictionary const&) = default;
  CUMutableDictionary& operator=(CUMutableDictionary const&) { return *this; }
  using CUObject::operator=;
  ~CUMutableDictionary() override;

  // Stores the object, a null pointer too, under a copy of `key`, or in place of the value there;
  // the key that is there stays as it is. A null key does nothing.
  void SetObjectForKey(CUSharedPtr<CUObject> object, CUSharedPtr<CUStringMac> key);

  // A null or missing key does nothing.
  void RemoveObjectForKey(CUSharedPtr<CUStringMac> key);

  void RemoveAllObjects();

 private:
  friend class CUXmlDomLoader;

  // SetObjectForKey, of a key that is only lent.
  void Set(CUStringMac const& key, CUSharedPtr<CUObject> object);
};
