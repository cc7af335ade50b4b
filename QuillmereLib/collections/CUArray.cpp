#include "QuillmereLib/collections/CUArray.h"

#include <algorithm>
#include <memory>
#include <new>

#include "QuillmereLib/strings/CUNewline.h"
#include "QuillmereLib/strings/CUStringMac.h"
#include "QuillmereLib/strings/TextBuilder.h"

namespace {

using Objects = std::vector<CUSharedPtr<CUObject>>;
using Iterator = Objects::iterator;

// Merges two sorted neighbours without memory. Elements only ever change places, so that none is
// lost when a comparison throws.
void MergeInPlace(Iterator first, Iterator middle, Iterator last, CUSortDescriptor& before) {
  auto const goesBefore = [&before](auto const& a, auto const& b) { return before(a, b); };
  while (first != middle && middle != last) {
    if (middle - first == 1 && last - middle == 1) {
      if (before(*middle, *first)) std::iter_swap(first, middle);
      return;
    }
    // The longer side is halved, and its element says where to cut the other.
    Iterator left = first;
    Iterator right = middle;
    if (middle - first > last - middle) {
      left += (middle - first) / 2;
      right = std::lower_bound(middle, last, *left, goesBefore);
    } else {
      right += (last - middle) / 2;
      left = std::upper_bound(first, middle, *right, goesBefore);
    }
    Iterator const cut = std::rotate(left, middle, right);
    MergeInPlace(first, left, cut, before);
    first = cut;
    middle = right;
  }
}

void SortInPlace(Iterator first, Iterator last, CUSortDescriptor& before) {
  if (last - first < 2) return;
  Iterator const middle = first + (last - first) / 2;
  SortInPlace(first, middle, before);
  SortInPlace(middle, last, before);
  MergeInPlace(first, middle, last, before);
}

// Puts at each place the element that `order` names for it, by swaps along each cycle.
void Rearrange(Objects& objects, CUSharedPtr<CUObject>** order) {
  CUSharedPtr<CUObject>* const base = objects.data();
  for (std::size_t i = 0; i < objects.size(); ++i) {
    std::size_t at = i;
    while (order[at] != base + i) {
      CUSharedPtr<CUObject>* const from = order[at];
      std::swap(base[at], *from);
      order[at] = base + at;
      at = static_cast<std::size_t>(from - base);
    }
    order[at] = base + at;
  }
}

// Sorts pointers at the elements and moves the elements once the order stands, so that no count is
// touched but by the comparisons, and nothing changes when one of them throws. Without memory for
// the pointers the elements are sorted where they are.
void SortStably(Objects& objects, CUSortDescriptor const& descriptor) {
  CUSortDescriptor before(descriptor);
  std::size_t const count = objects.size();
  if (count < 2) return;

  using Element = CUSharedPtr<CUObject>*;
  std::unique_ptr<Element[]> const order(new (std::nothrow) Element[count]);
  if (!order) {
    SortInPlace(objects.begin(), objects.end(), before);
    return;
  }
  for (std::size_t i = 0; i < count; ++i) order[i] = &objects[i];
  std::stable_sort(order.get(), order.get() + count,
                   [&before](Element a, Element b) { return before(*a, *b); });
  Rearrange(objects, order.get());
}

}  // namespace

CUArray::CUArray(CUSharedPtr<CUArray> source) {
  if (source != nullptr) m_objects = source->m_objects;
}

CUArray::~CUArray() = default;

CUSharedPtr<CUStringMac> CUArray::Description() {
  TextBuilder text;
  text.Append("{");
  text.Append(CU_NEWLINE_CHAR);
  std::size_t const count = m_objects.size();
  for (std::size_t i = 0; i < count; ++i) {
    text.Append("\t");
    CUSharedPtr<CUObject> const object = ObjectAtIndex(i);
    text.AppendDescription(object.Get());
    text.Append(CU_NEWLINE_CHAR);
  }
  text.Append("}");
  return text.Text();
}

CUSharedPtr<CUArray> CUArray::SortedArrayUsingDescriptor(CUSharedPtr<CUSortDescriptor> descriptor) {
  if (descriptor == nullptr) return nullptr;
  CUSharedPtr<CUArray> sorted = new CUArray(*this);
  SortStably(sorted->m_objects, *descriptor);
  return sorted;
}

CUMutableArray::~CUMutableArray() = default;

void CUMutableArray::AddObjectsFromArray(CUSharedPtr<CUArray> source) {
  if (source == nullptr) return;
  unsigned int const count = source->Count();
  for (unsigned int i = 0; i < count; ++i) AddObject(source->ObjectAtIndex(i));
}

void CUMutableArray::InsertObjectAtIndex(CUSharedPtr<CUObject> object, unsigned long index) {
  Objects& objects = *GetInternalArray();
  if (index > objects.size()) return;
  objects.insert(objects.begin() + static_cast<std::ptrdiff_t>(index), std::move(object));
}

void CUMutableArray::RemoveAllObjects() {
  Objects& objects = *GetInternalArray();
  while (!objects.empty()) objects.pop_back();
}

void CUMutableArray::RemoveObjectAtIndex(unsigned long index) {
  Objects& objects = *GetInternalArray();
  if (index >= objects.size()) return;
  objects.erase(objects.begin() + static_cast<std::ptrdiff_t>(index));
}

void CUMutableArray::RemoveObject(CUSharedPtr<CUObject> object) {
  if (object == nullptr) return;
  Objects& objects = *GetInternalArray();
  auto const found = std::find(objects.begin(), objects.end(), object);
  if (found != objects.end()) objects.erase(found);
}

void CUMutableArray::SetArray(CUSharedPtr<CUArray> source) {
  RemoveAllObjects();
  AddObjectsFromArray(std::move(source));
}

void CUMutableArray::SortUsingDescriptor(CUSharedPtr<CUSortDescriptor> descriptor) {
  if (descriptor != nullptr) SortStably(*GetInternalArray(), *descriptor);
}
