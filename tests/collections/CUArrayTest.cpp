#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "QuillmereLib/collections/CUArray.h"
#include "tests/support/CountedObject.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/Strings.h"

namespace {

using Object = CUSharedPtr<CUObject>;
using Numbers = std::vector<int>;

// An element's tens decide; its ones tell apart what is equal. Null counts as 0.
int NumberOf(Object const& object) {
  auto* const counted = dynamic_cast<CountedObject*>(object.Get());
  return counted == nullptr ? 0 : counted->Value();
}

class ByTens : public CUSortDescriptor {
 public:
  using CUSortDescriptor::CUSortDescriptor;
  int CompareObject(Object first, Object second) override {
    if (++Calls == ThrowAt) throw 7;
    return 100 * (NumberOf(second) / 10 - NumberOf(first) / 10);
  }
  int Calls = 0;
  int ThrowAt = 0;
};

CUSharedPtr<CUMutableArray> ArrayOfNumbers(Numbers const& numbers) {
  CUSharedPtr<CUMutableArray> const array = new CUMutableArray;
  for (int number : numbers) array->AddObject(number == 0 ? nullptr : new CountedObject(number));
  return array;
}

Numbers NumbersOf(CUArray& array) {
  Numbers numbers;
  for (Object const& object : *array.GetInternalArray()) numbers.push_back(NumberOf(object));
  return numbers;
}

}  // namespace

TEST(CUMutableArray, ChangesWhereItIsTold) {
  auto const array = ArrayOfNumbers({2, 3});
  Object const one = new CountedObject(1);
  for (unsigned long const place : {0ul, 3ul, 2ul}) array->InsertObjectAtIndex(one, place);
  for (unsigned long const beyond : {6ul, ~0ul}) {
    array->InsertObjectAtIndex(one, beyond);
    array->RemoveObjectAtIndex(beyond - 1);
  }
  EXPECT_EQ(NumbersOf(*array), (Numbers{1, 2, 1, 3, 1}));
  EXPECT_EQ(array->ObjectAtIndex(5), nullptr);
  array->RemoveObject(one);
  array->RemoveObject(new CountedObject(2));
  array->RemoveObjectAtIndex(3);
  array->RemoveObjectAtIndex(1);
  EXPECT_EQ(NumbersOf(*array), (Numbers{2, 3})) << "an equal one is not the same object";
  array->AddObjectsFromArray(array);
  EXPECT_EQ(NumbersOf(*array), (Numbers{2, 3, 2, 3}));
  array->SetArray(ArrayOfNumbers({0, 4}));
  array->RemoveObject(nullptr);
  EXPECT_EQ(NumbersOf(*array), (Numbers{0, 4})) << "null is not looked for";
  array->SetArray(array);
  EXPECT_EQ(array->LastObject(), nullptr);
}

TEST(CUArray, SharesItsElementsAndIsNotCopiedByAssignment) {
  auto const source = ArrayOfNumbers({1, 0});
  Object const element = source->ObjectAtIndex(0);
  CUArray shallow((CUSharedPtr<CUArray>(source)));
  CUMutableArray copy(*source);
  EXPECT_EQ(CountOf(*element), 4);
  source->RemoveAllObjects();
  copy = *source;
  static_cast<CUArray&>(copy) = *source;
  static_cast<CUObject&>(copy) = *source;
  EXPECT_EQ(NumbersOf(shallow), (Numbers{1, 0}));
  EXPECT_EQ(NumbersOf(copy), (Numbers{1, 0}));
}

// Red when an element is let go while the array still holds its place, or in another order.
TEST(CUArray, IsWholeWhenItsElementsDie) {
  struct Dying : CountedObject {
    explicit Dying(CUMutableArray& of) : array(of) {}
    ~Dying() override { array.AddObject(new CountedObject(7 + static_cast<int>(array.Count()))); }
    CUMutableArray& array;
  };
  int const live = CountedObject::Live;
  CUMutableArray array;
  for (int way = 0; way < 3; ++way) {
    array.AddObject(new Dying(array));
    if (way == 0) array.RemoveObjectAtIndex(0);
    if (way == 1) array.RemoveObject(array.ObjectAtIndex(0));
    EXPECT_EQ(NumbersOf(array), way < 2 ? Numbers{7} : Numbers{0}) << way;
    array.RemoveAllObjects();
    EXPECT_EQ(CountedObject::Live, live) << way;
  }
  EventLog log;
  for (int i = 1; i <= 3; ++i) array.AddObject(new CountedObject(i, &log));
  array.RemoveAllObjects();
  EXPECT_EQ(log.Take(), "~3 ~2 ~1");
}

TEST(CUArray, DescribesItsElementsLineByLine) {
  auto const array = ArrayOfNumbers({});
  array->AddObject(Make("A"));
  array->AddObject(Make("B\u00e4\nb"));
  array->AddObject(array->SortedArrayUsingDescriptor(new CUSortDescriptor));
  array->AddObject(new Scripted([] { return nullptr; }));
  std::string const lines = "{\n\tA\n\tB\u00e4\nb\n";
  EXPECT_EQ(Utf8(array->Description()), lines + "\t" + lines + "}\n\t<NULL>\n}")
      << "no indentation by nesting; no text where a description has none";

  // Elements may change the array meanwhile: the count is that at the call.
  CUMutableArray changing;
  changing.AddObject(new Scripted([&changing] {
    changing.RemoveAllObjects();
    return Make("gone");
  }));
  changing.AddObject(Make("never"));
  EXPECT_EQ(Utf8(changing.Description()), "{\n\tgone\n\t<NULL>\n}");
}

// Red when the sign is taken as usual, equal elements change places, or the copy that sorts
// compares by itself.
TEST(CUSortDescriptor, SortsStablyByTheReversedSign) {
  Numbers const numbers = {21, 11, 22, 0, 12};
  for (bool const ascending : {true, false}) {
    Numbers const sorted = ascending ? Numbers{0, 11, 12, 21, 22} : Numbers{21, 22, 11, 12, 0};
    auto const array = ArrayOfNumbers(numbers);
    CUSharedPtr<CUSortDescriptor> const descriptor = new ByTens(!ascending);
    descriptor->SetAscending(ascending);
    auto const copy = array->SortedArrayUsingDescriptor(descriptor);
    EXPECT_EQ(NumbersOf(*copy), sorted);
    EXPECT_EQ(NumbersOf(*array), numbers);
    EXPECT_EQ(dynamic_cast<CUMutableArray*>(copy.Get()), nullptr);
    array->SortUsingDescriptor(descriptor);
    EXPECT_EQ(NumbersOf(*array), sorted);
  }
  // A copy, and a copy of that, compare through their source.
  ByTens source;
  CUSortDescriptor copy(source), copyOfCopy(copy);
  copyOfCopy.SetAscending(false);
  Object const less = new CountedObject(10), greater = new CountedObject(20);
  EXPECT_TRUE(copy(less, greater) && !copyOfCopy(less, greater));
  EXPECT_EQ(source.Calls, 2);
}

// Red when the sort trusts the comparison to stay within the array.
TEST(CUSortDescriptor, MayContradictItself) {
  struct Fickle : CUSortDescriptor {
    int CompareObject(Object, Object) override { return static_cast<int>(random() % 3) - 1; }
    std::minstd_rand random;
  };
  CUSharedPtr<CUSortDescriptor> const fickle = new Fickle;
  Numbers numbers;
  for (int count = 1; count < 200; ++count) {
    numbers.push_back(count);
    auto const array = ArrayOfNumbers(numbers);
    array->SortUsingDescriptor(fickle);
    Numbers sorted = NumbersOf(*array);
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, numbers);
  }
}

// Red when a comparison that throws leaves a half changed order, or, where there is no memory to
// sort beside the elements, loses one; or when equal ones change places there.
TEST(CUSortDescriptor, ThrowingComparisonKeepsTheOrder) {
  Numbers numbers;
  for (int i = 0; i < 40; ++i) numbers.push_back(10 * ((i * 7) % 10 + 1) + i / 10);
  Numbers sorted = numbers;
  std::sort(sorted.begin(), sorted.end());
  int const alive = CountedObject::Live;
  for (int failing = 0; failing <= 3; ++failing) {
    for (int nth = 1; nth <= 80; nth += 13) {
      CUSharedPtr<ByTens> const descriptor = new ByTens;
      descriptor->ThrowAt = nth;
      auto const array = ArrayOfNumbers(numbers);
      {
        FailingAllocation const outOfMemory(failing);
        EXPECT_THROW(array->SortUsingDescriptor(descriptor), int);
      }
      Numbers left = NumbersOf(*array);
      EXPECT_TRUE(failing != 0 || left == numbers) << nth;
      std::sort(left.begin(), left.end());
      EXPECT_EQ(left, sorted) << "allocation " << failing << ", comparison " << nth;
    }
  }
  auto const sortAll = [&] {
    auto const unsorted = ArrayOfNumbers(numbers);
    unsorted->SortUsingDescriptor(new ByTens);
    EXPECT_EQ(NumbersOf(*unsorted), sorted);
  };
  FailEachAllocation(sortAll, [&] { EXPECT_EQ(CountedObject::Live, alive); });
}
