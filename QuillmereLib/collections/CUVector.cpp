#include "QuillmereLib/collections/CUVector.h"

#include <CoreFoundation/CoreFoundation.h>

#include <new>
#include <string>

#include "QuillmereLib/strings/CUStringMac.h"

template <class T>
CUVector<T>::CUVector() = default;

template <class T>
CUVector<T>::~CUVector() = default;

template <class T>
CUSharedPtr<CUStringMac> CUVector<T>::Description() {
  std::string text = "{";
  for (T const number : *this) {
    if (text.size() > 1) text += ',';
    text += ' ';
    text += std::to_string(+number);  // what is narrower than int becomes one
  }
  if (!this->empty()) text += ' ';
  text += '}';
  CUSharedPtr<CUStringMac> description = new CUStringMac(text.c_str(), CUString_CharCode_UTF8);
  if (static_cast<CFStringRef>(*description) == nullptr) throw std::bad_alloc();
  return description;
}

template class CUVector<signed char>;
template class CUVector<unsigned char>;
template class CUVector<short>;
template class CUVector<unsigned short>;
template class CUVector<int>;
template class CUVector<unsigned int>;
template class CUVector<long long>;
template class CUVector<unsigned long long>;

CUSharedPtr<CUVector<signed char>> CreateCUVectorSInt8() { return new CUVector<signed char>; }
CUSharedPtr<CUVector<unsigned char>> CreateCUVectorUInt8() { return new CUVector<unsigned char>; }
CUSharedPtr<CUVector<short>> CreateCUVectorSInt16() { return new CUVector<short>; }
CUSharedPtr<CUVector<unsigned short>> CreateCUVectorUInt16() {
  return new CUVector<unsigned short>;
}
CUSharedPtr<CUVector<int>> CreateCUVectorSInt32() { return new CUVector<int>; }
CUSharedPtr<CUVector<unsigned int>> CreateCUVectorUInt32() { return new CUVector<unsigned int>; }
CUSharedPtr<CUVector<long long>> CreateCUVectorSInt64() { return new CUVector<long long>; }
CUSharedPtr<CUVector<unsigned long long>> CreateCUVectorUInt64() {
  return new CUVector<unsigned long long>;
}
