#pragma once

// CUIndexSet, an ordered set of whole numbers from 0, and CUMutableIndexSet, which can be changed.

#include <set>

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUResult.h"
#include "QuillmereLib/core/CUSharedPtr.h"

// There is no lock; only std::bad_alloc is thrown.
class QUILLMERE_API CUIndexSet : public CUObject {
 public:
  // The answer where there is no index to give.
  static int const noIndex = -1;

  CUIndexSet() = default;
  CUIndexSet(CUIndexSet const&) = default;
  CUIndexSet& operator=(CUIndexSet const&) = default;
  using CUObject::operator=;
  ~CUIndexSet() override;

  // A new empty set.
  static CUSharedPtr<CUIndexSet> Create();

  // Does nothing, and succeeds.
  CUResult Init() { return CUResult_Success; }

  // False for numbers below 0.
  bool ContainsIndex(int index) { return index >= 0 && m_indexes.count(index) != 0; }

  // The lowest and the highest index, or noIndex for an empty set.
  int FirstIndex() { return m_indexes.empty() ? noIndex : *m_indexes.begin(); }
  int LastIndex() { return m_indexes.empty() ? noIndex : *m_indexes.rbegin(); }

 protected:
  std::set<int> m_indexes;
};

class QUILLMERE_API CUMutableIndexSet : public CUIndexSet {
 public:
  CUMutableIndexSet() = default;
  CUMutableIndexSet(CUMutableIndexSet const&) = default;
  CUMutableIndexSet& operator=(CUMutableIndexSet const&) = default;
  using CUObject::operator=;
  ~CUMutableIndexSet() override;

  // A new empty set.
  static CUSharedPtr<CUMutableIndexSet> Create();

  // Numbers below 0 are ignored by both, and so is what is there, or missing, already.
  void AddIndex(int index);
  void RemoveIndex(int index);

  void RemoveAllIndexes();
};
