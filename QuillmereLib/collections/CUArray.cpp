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
using Element = CUSharedPtr<CUObject>*;

// Removes an element. It is let go once the array is whole again: as it dies, it may come back to
// the array.
CUSharedPtr<CUObject> Take(Objects& objects, Iterator place) {
  CUSharedPtr<CUObject> taken = std::move(*place);
  objects.erase(place);
  return taken;
}

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
void Rearrange(Objects& objects, Element* order) {
  Element const base = objects.data();
  for (std::size_t i = 0; i < objects.size(); ++i) {
    std::size_t at = i;
    while (order[at] != base + i) {
      Element const from = order[at];
      std::swap(base[at], *from);
      order[at] = base + at;
      at = static_cast<std::size_t>(from - base);
    }
    order[at] = base + at;
  }
}

// Sorts stably, with room for half of the elements. Comparisons may contradict each other, and
// themselves: the order is any then, but nothing outside is touched, which std::stable_sort does
// not promise.
void MergeSort(Element* first, Element* last, Element* room, CUSortDescriptor& before) {
  constexpr std::ptrdiff_t kFew = 8;
  if (last - first <= kFew) {
    for (Element* next = first; next != last; ++next) {
      Element const element = *next;
      Element* place = next;
      for (; place != first && before(*element, *place[-1]); --place) *place = place[-1];
      *place = element;
    }
    return;
  }
  Element* const middle = first + (last - first) / 2;
  MergeSort(first, middle, room, before);
  MergeSort(middle, last, room, before);
  Element* left = room;
  Element* const leftEnd = std::copy(first, middle, room);
  Element* right = middle;
  Element* place = first;
  while (left != leftEnd && right != last) {
    *place++ = before(**right, **left) ? *right++ : *left++;
  }
  std::copy(left, leftEnd, place);
}

// Sorts pointers at the elements and moves the elements once the order stands, so that no count is
// touched but by the comparisons, and nothing changes when one of them throws. Without memory for
// the pointers the elements are sorted where they are.
void SortStably(Objects& objects, CUSortDescriptor const& descriptor) {
  CUSortDescriptor before(descriptor);
  std::size_t const count = objects.size();
  if (count < 2) return;

  std::unique_ptr<Element[]> const order(new (std::nothrow) Element[count + count / 2]);
  if (!order) {
    SortInPlace(objects.begin(), objects.end(), before);
    return;
  }
  for (std::size_t i = 0; i < count; ++i) order[i] = &objects[i];
  MergeSort(order.get(), order.get() + count, order.get() + count, before);
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
  while (!objects.empty()) Take(objects, objects.end() - 1);
}

void CUMutableArray::RemoveObjectAtIndex(unsigned long index) {
  Objects& objects = *GetInternalArray();
  if (index < objects.size()) Take(objects, objects.begin() + static_cast<std::ptrdiff_t>(index));
}

void CUMutableArray::RemoveObject(CUSharedPtr<CUObject> object) {
  if (object == nullptr) return;
  Objects& objects = *GetInternalArray();
  auto const found = std::find(objects.begin(), objects.end(), object);
  if (found != objects.end()) Take(objects, found);
}

void CUMutableArray::SetArray(CUSharedPtr<CUArray> source) {
  RemoveAllObjects();
  AddObjectsFromArray(std::move(source));
}

void CUMutableArray::SortUsingDescriptor(CUSharedPtr<CUSortDescriptor> descriptor) {
  if (descriptor != nullptr) SortStably(*GetInternalArray(), *descriptor);
}
