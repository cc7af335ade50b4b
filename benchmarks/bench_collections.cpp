// The array of objects beside its peers.

#include <glib.h>

#include <QList>
#include <QSharedPointer>
#include <algorithm>
#include <memory>

#include "QuillmereLib/collections/CUArray.h"
#include "benchmarks/Cases.h"

namespace {

constexpr int kCount = 1000;

struct Item : CUObject {
  explicit Item(int value) : number(value) {}
  int number;
};

int Difference(CUObject* first, CUObject* second) {
  return static_cast<Item*>(second)->number - static_cast<Item*>(first)->number;
}

// Rising order. The reversed sign is the descriptor's convention.
struct ByNumber : CUSortDescriptor {
  int CompareObject(CUSharedPtr<CUObject> first, CUSharedPtr<CUObject> second) override {
    return Difference(first.Get(), second.Get());
  }
};

// The numbers of the items in an order of chance, with each one ten times.
std::vector<int> Numbers() {
  std::vector<int> numbers;
  std::mt19937 chance(20010101);
  for (int i = 0; i < kCount; ++i) numbers.push_back(static_cast<int>(chance() % (kCount / 10)));
  return numbers;
}

using Vector = std::vector<CUSharedPtr<CUObject>>;

// All at one index each in turn, as many as the array holds.
template <class Get>
auto Visit(Get get) {
  return [get]() mutable {
    for (unsigned int i = 0; i < kCount; ++i) {
      auto const object = get(i);
      benchmark::DoNotOptimize(object);
    }
    return 0;
  };
}

void RegisterOurs(Vector const& items) {
  Measure("collections/append_1000/quillmere", [items] {
    CUMutableArray array;
    for (CUSharedPtr<CUObject> const& item : items) array.AddObject(item);
    benchmark::DoNotOptimize(array.Count());
    return 0;
  });

  CUSharedPtr<CUMutableArray> const array(new CUMutableArray);
  for (CUSharedPtr<CUObject> const& item : items) array->AddObject(item);
  Measure("collections/access_1000/quillmere",
          Visit([array](unsigned int i) { return array->ObjectAtIndex(i); }));

  CUSharedPtr<CUSortDescriptor> const descriptor(new ByNumber);
  Measure("collections/sort_1000/quillmere",
          [array, descriptor] { return array->SortedArrayUsingDescriptor(descriptor); });
}

void RegisterVector(Vector const& items) {
  Measure("collections/append_1000/std_vector", [items] {
    Vector array;
    for (CUSharedPtr<CUObject> const& item : items) array.push_back(item);
    benchmark::DoNotOptimize(array.data());
    return 0;
  });
  Measure("collections/access_1000/std_vector",
          Visit([items](unsigned int i) { return items.at(i); }));

  CUSharedPtr<CUSortDescriptor> const descriptor(new ByNumber);
  Measure("collections/sort_1000/std_vector", [items, descriptor] {
    Vector sorted(items);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [&](CUSharedPtr<CUObject> const& a, CUSharedPtr<CUObject> const& b) {
                       return descriptor->CompareObject(a, b) > 0;
                     });
    return sorted;
  });
}

struct PlainItem {
  explicit PlainItem(int value) : number(value) {}
  virtual ~PlainItem() = default;
  int number;
};

// Qt's list, with the same comparison by value.
void RegisterList(std::vector<int> const& numbers) {
  using Pointer = QSharedPointer<PlainItem>;
  using List = QList<Pointer>;
  List items;
  for (int const number : numbers) items.append(Pointer::create(number));
  Measure("collections/append_1000/qlist", [items] {
    List array;
    for (Pointer const& item : items) array.append(item);
    benchmark::DoNotOptimize(array.constData());
    return 0;
  });
  Measure("collections/access_1000/qlist",
          Visit([items](unsigned int i) { return items.at(static_cast<qsizetype>(i)); }));
  Measure("collections/sort_1000/qlist", [items] {
    List sorted(items);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](Pointer a, Pointer b) { return a->number < b->number; });
    return sorted;
  });
}

// GLib's array of counted blocks; its comparison is given the places of the pointers.
void RegisterPointerArray(std::vector<int> const& numbers) {
  auto const newArray = [] { return g_ptr_array_new_with_free_func(g_atomic_rc_box_release); };
  auto const copyInto = [](GPtrArray* target, GPtrArray const* source) {
    for (guint i = 0; i < source->len; ++i) {
      g_ptr_array_add(target, g_atomic_rc_box_acquire(source->pdata[i]));
    }
  };
  std::shared_ptr<GPtrArray> const items(newArray(), g_ptr_array_unref);
  for (int const number : numbers) {
    int* const item = g_atomic_rc_box_new(int);
    *item = number;
    g_ptr_array_add(items.get(), item);
  }
  Measure("collections/append_1000/gptrarray", [=] {
    GPtrArray* const array = newArray();
    copyInto(array, items.get());
    benchmark::DoNotOptimize(array->pdata);
    g_ptr_array_unref(array);
    return 0;
  });
  Measure("collections/sort_1000/gptrarray", [=] {
    GPtrArray* const sorted = newArray();
    copyInto(sorted, items.get());
    g_ptr_array_sort(sorted, [](gconstpointer a, gconstpointer b) {
      return **static_cast<int* const*>(a) - **static_cast<int* const*>(b);
    });
    benchmark::DoNotOptimize(sorted->pdata);
    g_ptr_array_unref(sorted);
    return 0;
  });
}

void RegisterAll() {
  std::vector<int> const numbers = Numbers();
  Vector items;
  for (int const number : numbers) items.emplace_back(new Item(number));
  RegisterOurs(items);
  RegisterVector(items);
  RegisterList(numbers);
  RegisterPointerArray(numbers);
}

}  // namespace

int main(int argc, char** argv) { return RunCases(argc, argv, RegisterAll); }
