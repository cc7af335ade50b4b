#include "QuillmereLib/collections/CUIndexSet.h"

int const CUIndexSet::noIndex;

CUIndexSet::~CUIndexSet() = default;

CUSharedPtr<CUIndexSet> CUIndexSet::Create() { return new CUIndexSet; }

CUMutableIndexSet::~CUMutableIndexSet() = default;

CUSharedPtr<CUMutableIndexSet> CUMutableIndexSet::Create() {
  CUSharedPtr<CUMutableIndexSet> set = new CUMutableIndexSet;
  return CUFailed(set->Init()) ? nullptr : set;
}

void CUMutableIndexSet::AddIndex(int index) {
  if (index >= 0) m_indexes.insert(index);
}

void CUMutableIndexSet::RemoveIndex(int index) { m_indexes.erase(index); }

void CUMutableIndexSet::RemoveAllIndexes() { m_indexes.clear(); }
