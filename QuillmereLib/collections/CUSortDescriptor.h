#pragma once

// CUSortDescriptor, how an array is ordered. Derive from it and override CompareObject.

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUSharedPtr.h"

// A sort works on a plain copy of the descriptor, which still compares through the original: the
// copy points at what its source points at. So a copy must not outlive the descriptor that it was
// made from. Not safe to change while another thread sorts with it.
class QUILLMERE_API CUSortDescriptor : public CUObject {
 public:
  explicit CUSortDescriptor(bool ascending = true) : m_ascending(ascending), m_comparer(this) {}
  CUSortDescriptor(CUSortDescriptor const& other)
      : CUObject(other), m_ascending(other.m_ascending), m_comparer(other.m_comparer) {}
  CUSortDescriptor& operator=(CUSortDescriptor const&) = default;

  bool Ascending() { return m_ascending; }
  void SetAscending(bool ascending) { m_ascending = ascending; }

  // How two elements compare: a POSITIVE result puts `first` first in ascending order, a negative
  // one `second`; 0 leaves them as they stand. This is the reverse of the usual sign. Either may be
  // null. The base class returns 0.
  virtual int CompareObject(CUSharedPtr<CUObject> first, CUSharedPtr<CUObject> second);

  // Whether `first` goes before `second`, direction included.
  bool operator()(CUSharedPtr<CUObject> const& first, CUSharedPtr<CUObject> const& second) {
    int const order = m_comparer->CompareObject(first, second);
    return m_ascending ? order > 0 : order < 0;
  }

 private:
  bool m_ascending;
  CUSortDescriptor* m_comparer;  // borrowed
};
