#pragma once

// CUVector<T>, a counted object that is a sequence of numbers as well.

#include <vector>

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUSharedPtr.h"

class CUStringMac;

// Used by the operations of std::vector, and assigned and copied as one. The library holds it for
// the eight integers below; there is no other T. There is no lock; only the sequence's own
// exceptions are thrown.
template <class T>
class QUILLMERE_API CUVector : public std::vector<T>, public CUObject {
 public:
  CUVector();
  CUVector(CUVector const&) = default;
  CUVector& operator=(CUVector const&) = default;
  using std::vector<T>::operator=;
  using CUObject::operator=;
  ~CUVector() override;

  // The numbers in decimal, as in "{ 1, 2, 3 }"; "{}" for none.
  CUSharedPtr<CUStringMac> Description() override;
};

extern template class CUVector<signed char>;
extern template class CUVector<unsigned char>;
extern template class CUVector<short>;
extern template class CUVector<unsigned short>;
extern template class CUVector<int>;
extern template class CUVector<unsigned int>;
extern template class CUVector<long long>;
extern template class CUVector<unsigned long long>;

// New empty vectors. Memory that runs out is thrown as std::bad_alloc.
QUILLMERE_API CUSharedPtr<CUVector<signed char>> CreateCUVectorSInt8();
QUILLMERE_API CUSharedPtr<CUVector<unsigned char>> CreateCUVectorUInt8();
QUILLMERE_API CUSharedPtr<CUVector<short>> CreateCUVectorSInt16();
QUILLMERE_API CUSharedPtr<CUVector<unsigned short>> CreateCUVectorUInt16();
QUILLMERE_API CUSharedPtr<CUVector<int>> CreateCUVectorSInt32();
QUILLMERE_API CUSharedPtr<CUVector<unsigned int>> CreateCUVectorUInt32();
QUILLMERE_API CUSharedPtr<CUVector<long long>> CreateCUVectorSInt64();
QUILLMERE_API CUSharedPtr<CUVector<unsigned long long>> CreateCUVectorUInt64();
