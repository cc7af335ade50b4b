#pragma once

// CUArray, the ordered collection of objects, and CUMutableArray, which can be changed.

#include <stdexcept>
#include <vector>

#include "QuillmereLib/collections/CUSortDescriptor.h"
#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUSharedPtr.h"

// Shares its elements, of which null is a legal one. A bad index gives a null pointer or changes
// nothing; only the standard library's own exceptions are thrown. There is no lock.
class QUILLMERE_API CUArray : public CUObject {
 public:
  CUArray() = default;

  // Holds the same objects in the same order; null gives an empty array.
  CUArray(CUSharedPtr<CUArray> source);
  CUArray(CUArray const&) = default;

  // Assigns nothing: an array is copied by construction only.
  CUArray& operator=(CUArray const&) { return *this; }
  using CUObject::operator=;

  ~CUArray() override;

  // The elements' descriptions, one a line behind a tab, between braces; "<NULL>" for a null one.
  CUSharedPtr<CUStringMac> Description() override;

  unsigned int Count() { return static_cast<unsigned int>(m_objects.size()); }

  CUSharedPtr<CUObject> ObjectAtIndex(unsigned long index) {
    return index < m_objects.size() ? m_objects[index] : CUSharedPtr<CUObject>();
  }

  // Null for an empty array.
  CUSharedPtr<CUObject> LastObject() {
    return m_objects.empty() ? CUSharedPtr<CUObject>() : m_objects.back();
  }

  // A new array of the same objects, stably sorted. Null for a null descriptor.
  CUSharedPtr<CUArray> SortedArrayUsingDescriptor(CUSharedPtr<CUSortDescriptor> descriptor);

  // The elements themselves, lent. What is changed there is changed in the array.
  std::vector<CUSharedPtr<CUObject>>* GetInternalArray() { return &m_objects; }

 private:
  std::vector<CUSharedPtr<CUObject>> m_objects;
};

class QUILLMERE_API CUMutableArray : public CUArray {
 public:
  CUMutableArray() = default;
  CUMutableArray(CUSharedPtr<CUArray> source) : CUArray(std::move(source)) {}
  CUMutableArray(CUMutableArray const&) = default;
  CUMutableArray& operator=(CUMutableArray const&) { return *this; }
  using CUObject::operator=;
  ~CUMutableArray() override;

  // Appends, a null pointer too. Beyond the greatest possible size the object is dropped silently.
  void AddObject(CUSharedPtr<CUObject> object) {
    try {
      GetInternalArray()->push_back(std::move(object));
    } catch (std::length_error const&) {
    }
  }

  // Appends the elements that `source` has at the call; given the array itself, it doubles.
  void AddObjectsFromArray(CUSharedPtr<CUArray> source);

  // Inserts before `index`; an index equal to the count appends, one beyond does nothing.
  void InsertObjectAtIndex(CUSharedPtr<CUObject> object, unsigned long index);

  // Lets the elements go from the last to the first. The capacity stays.
  void RemoveAllObjects();

  void RemoveObjectAtIndex(unsigned long index);

  // Removes the first element that is this very object; others like it stay. Null does nothing.
  void RemoveObject(CUSharedPtr<CUObject> object);

  // Empties the array, then appends the elements of `source`. Given the array itself, that leaves
  // it empty.
  void SetArray(CUSharedPtr<CUArray> source);

  // Sorts stably in place; null does nothing. Should a comparison throw, the order is as before, or
  // another where memory was short, but no element is lost.
  void SortUsingDescriptor(CUSharedPtr<CUSortDescriptor> descriptor);
};
