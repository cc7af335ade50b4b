#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "QuillmereLib/collections/CUArray.h"
#include "tests/support/CountedObject.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/Scripted.h"
#include "tests/support/Strings.h"

namespace {

using Object = CUSharedPtr<CUObject>;

CUSharedPtr<CUMutableArray> ArrayOf(std::vector<Object> const& objects) {
  CUSharedPtr<CUMutableArray> const array = new CUMutableArray;
  *array->GetInternalArray() = objects;
  return array;
}

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
    int const a = NumberOf(first) / 10;
    int const b = NumberOf(second) / 10;
    return a < b ? 100 : a > b ? -100 : 0;
  }
  int Calls = 0;
  int ThrowAt = 0;
};

CUSharedPtr<CUMutableArray> ArrayOfNumbers(std::vector<int> const& numbers) {
  CUSharedPtr<CUMutableArray> const array = new CUMutableArray;
  for (int number : numbers) {
    array->AddObject(number == 0 ? nullptr : new CountedObject(number));
  }
  return array;
}

std::vector<int> Numbers(CUArray& array) {
  std::vector<int> numbers;
  for (Object const& object : *array.GetInternalArray()) numbers.push_back(NumberOf(object));
  return numbers;
}

}  // namespace

TEST(CUArray, TellsOfNothingBeyondItsEnd) {
  CUMutableArray array;
  EXPECT_TRUE(array.LastObject() == nullptr);
  array.InsertObjectAtIndex(Make("x"), ~0ul);
  array.RemoveObjectAtIndex(~0ul);
  array.AddObject(Make("a"));
  array.RemoveObject(Make("a"));
  array.AddObjectsFromArray(nullptr);
  EXPECT_EQ(Utf8(array.LastObject()), "a") << "an equal text is not the same object";
  EXPECT_TRUE(array.ObjectAtIndex(1) == nullptr);
  array.SetArray(nullptr);
  EXPECT_EQ(array.Count(), 0u);
}

TEST(CUArray, SharesItsElementsAndIsNotCopiedByAssignment) {
  Object const element = new CountedObject(1);
  CUSharedPtr<CUMutableArray> const source = ArrayOf({element, nullptr});
  CUArray shallow((CUSharedPtr<CUArray>(source)));
  CUMutableArray copy(*source);
  EXPECT_EQ(CountOf(*element), 4);
  source->RemoveAllObjects();
  EXPECT_EQ(Numbers(shallow), (std::vector<int>{1, 0}));
  copy = *source;
  static_cast<CUArray&>(copy) = *source;
  static_cast<CUObject&>(copy) = *source;
  EXPECT_EQ(Numbers(copy), (std::vector<int>{1, 0}));
  shallow.GetInternalArray()->pop_back();
  EXPECT_EQ(shallow.Count(), 1u);
  EXPECT_EQ(CUMutableArray(CUSharedPtr<CUArray>()).Count(), 0u);
}

TEST(CUArray, RemoveAllLetsGoFromTheLastToTheFirst) {
  EventLog log;
  CUMutableArray array;
  for (int i = 1; i <= 3; ++i) array.AddObject(new CountedObject(i, &log));
  std::size_t const capacity = array.GetInternalArray()->capacity();
  array.RemoveAllObjects();
  EXPECT_EQ(log.Take(), "~3 ~2 ~1");
  EXPECT_EQ(array.GetInternalArray()->capacity(), capacity);
}

TEST(CUArray, DescribesItsElementsLineByLine) {
  EXPECT_EQ(Utf8(CUArray().Description()), "{\n}");
  auto const array = ArrayOf({Make("A"), nullptr, Make("B\xC3\xA4\nb"), Make("\xFF")});
  array->AddObject(array->SortedArrayUsingDescriptor(new CUSortDescriptor));
  array->AddObject(new Scripted([] { return nullptr; }));
  std::string const inner = "{\n\tA\n\t<NULL>\n\tB\xC3\xA4\nb\n\t\n}";
  EXPECT_EQ(Utf8(array->Description()),
            inner.substr(0, inner.size() - 1) + "\t" + inner + "\n\t<NULL>\n}")
      << "no indentation by nesting; no text where a description has none";
}

// Red when the count is read anew for each line, or an element is used that has gone.
TEST(CUArray, DescriptionOutlivesChangesThatElementsMake) {
  CUMutableArray array;
  array.AddObject(new Scripted([&array] {
    array.RemoveAllObjects();
    return Make("gone");
  }));
  array.AddObject(Make("never"));
  EXPECT_EQ(Utf8(array.Description()), "{\n\tgone\n\t<NULL>\n}");
  array.AddObject(new Scripted([&array] {
    array.AddObject(Make("late"));
    return Make("early");
  }));
  EXPECT_EQ(Utf8(array.Description()), "{\n\tearly\n}");
}

// Red when a failure loses a count or a line, or leaves a half-built array.
TEST(CUArray, OutOfMemoryLosesNothing) {
  Object const element = Make("element");
  auto const array = ArrayOf({element, nullptr, element});
  std::string const whole = "{\n\telement\n\t<NULL>\n\telement\n}";
  CUSharedPtr<CUStringMac> text;
  int const failures = FailEachAllocation([&] { text = array->Description(); },
                                          [&] {
                                            EXPECT_EQ(CountOf(*element), 3);
                                            EXPECT_TRUE(text == nullptr || Utf8(text) == whole);
                                            text = nullptr;
                                          });
  EXPECT_GT(failures, 3);

  FailEachAllocation([&] { array->SortedArrayUsingDescriptor(new CUSortDescriptor); },
                     [&] { EXPECT_EQ(CountOf(*element), 3); });
  FailEachAllocation([&] { array->InsertObjectAtIndex(element, 1); },
                     [&] { EXPECT_EQ(CountOf(*element), static_cast<int>(array->Count())); });

  auto const path = Make("/a/b/c");
  CUSharedPtr<CUArray> components = array;
  FailEachAllocation(
      [&] {
        components = array;
        CUResult const result = path->PathComponents(&components);
        EXPECT_EQ(CUFailed(result), components == array);
      },
      [&] {
        if (components != array) {
          EXPECT_EQ(Utf8(components->Description()), "{\n\t/\n\ta\n\tb\n\tc\n}");
        }
      });
  EXPECT_EQ(Utf8(components->Description()), "{\n\t/\n\ta\n\tb\n\tc\n}");
}

// Red when the sign is taken as usual, equal elements change places, or the copy that sorts
// compares by itself.
TEST(CUSortDescriptor, SortsStablyByTheReversedSign) {
  std::vector<int> const numbers = {21, 11, 22, 0, 12, 31, 13};
  std::pair<bool, std::vector<int>> const cases[] = {{true, {0, 11, 12, 13, 21, 22, 31}},
                                                     {false, {31, 21, 22, 11, 12, 13, 0}}};
  for (auto const& [ascending, sorted] : cases) {
    auto const array = ArrayOfNumbers(numbers);
    CUSharedPtr<CUSortDescriptor> const descriptor = new ByTens(!ascending);
    descriptor->SetAscending(ascending);
    auto const copy = array->SortedArrayUsingDescriptor(descriptor);
    EXPECT_EQ(Numbers(*copy), sorted);
    EXPECT_EQ(Numbers(*array), numbers);
    EXPECT_EQ(dynamic_cast<CUMutableArray*>(copy.Get()), nullptr);
    array->SortUsingDescriptor(descriptor);
    EXPECT_EQ(Numbers(*array), sorted);
  }
}

TEST(CUSortDescriptor, CopyComparesThroughItsSource) {
  ByTens source;
  CUSortDescriptor copy(source);
  CUSortDescriptor copyOfCopy(copy);
  copyOfCopy.SetAscending(false);
  Object const less = new CountedObject(10), greater = new CountedObject(20);
  EXPECT_TRUE(copy(less, greater));
  EXPECT_FALSE(copyOfCopy(less, greater));
  EXPECT_TRUE(copyOfCopy(greater, less));
  EXPECT_EQ(source.Calls, 3);
}

TEST(CUSortDescriptor, LeavesWhatNeedsNoSorting) {
  auto const array = ArrayOfNumbers({31, 11, 0, 21});
  array->SortUsingDescriptor(new CUSortDescriptor(false));
  array->SortUsingDescriptor(nullptr);
  EXPECT_EQ(Numbers(*array), (std::vector<int>{31, 11, 0, 21}));
  EXPECT_TRUE(array->SortedArrayUsingDescriptor(nullptr) == nullptr);
  CUSharedPtr<ByTens> const counting = new ByTens;
  EXPECT_EQ(CUArray().SortedArrayUsingDescriptor(counting)->Count(), 0u);
  ArrayOfNumbers({1})->SortUsingDescriptor(counting);
  EXPECT_EQ(counting->Calls, 0);
}

// Red when a comparison that throws leaves a half changed order, or, where there is no memory to
// sort beside the elements, loses one; or when equal ones change places there.
TEST(CUSortDescriptor, ThrowingComparisonKeepsTheOrder) {
  std::vector<int> numbers;
  for (int i = 0; i < 40; ++i) numbers.push_back(10 * ((i * 7) % 10 + 1) + i / 10);
  for (int failing = 0; failing <= 3; ++failing) {
    for (int nth = 1; nth <= 80; nth += 13) {
      CUSharedPtr<ByTens> const descriptor = new ByTens;
      descriptor->ThrowAt = nth;
      auto const array = ArrayOfNumbers(numbers);
      {
        FailingAllocation const outOfMemory(failing);
        EXPECT_THROW(array->SortUsingDescriptor(descriptor), int);
      }
      std::vector<int> const left = Numbers(*array);
      if (failing == 0) {
        EXPECT_EQ(left, numbers) << nth;
      }
      EXPECT_TRUE(std::is_permutation(left.begin(), left.end(), numbers.begin()))
          << "allocation " << failing << ", comparison " << nth;
    }
  }
  int const alive = CountedObject::Live;
  std::vector<int> sorted = numbers;
  std::sort(sorted.begin(), sorted.end());
  FailEachAllocation(
      [&] {
        auto const unsorted = ArrayOfNumbers(numbers);
        unsorted->SortUsingDescriptor(new ByTens);
        EXPECT_EQ(Numbers(*unsorted), sorted);
      },
      [&] { EXPECT_EQ(CountedObject::Live, alive); });
}

// Random operations beside a std::vector of the same numbers.
TEST(CUMutableArray, AgreesWithAnOracle) {
  std::mt19937 random(20240607);
  auto const below = [&random](std::size_t bound) {
    return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random);
  };
  std::vector<Object> pool(1);
  for (int i = 10; i < 90; i += 4) pool.push_back(new CountedObject(i));
  CUSharedPtr<CUMutableArray> const array = new CUMutableArray;
  CUSharedPtr<CUSortDescriptor> const descriptor = new ByTens;
  std::vector<Object> oracle;
  auto const place = [&oracle](std::size_t at) {
    return oracle.begin() + static_cast<std::ptrdiff_t>(at);
  };

  for (int step = 0; step < 8000; ++step) {
    Object const object = pool[below(pool.size())];
    std::size_t const at = below(oracle.size() + 3);
    std::size_t const operation = below(oracle.size() > 60 ? 8 : 7);
    if (operation <= 1) {
      array->AddObject(object);
      oracle.push_back(object);
    } else if (operation == 2) {
      array->InsertObjectAtIndex(object, at);
      if (at <= oracle.size()) oracle.insert(place(at), object);
    } else if (operation == 3) {
      array->RemoveObjectAtIndex(at);
      if (at < oracle.size()) oracle.erase(place(at));
    } else if (operation == 4) {
      array->RemoveObject(object);
      auto const found = std::find(oracle.begin(), oracle.end(), object);
      if (object != nullptr && found != oracle.end()) oracle.erase(found);
    } else if (operation == 5) {
      bool const ascending = below(2) == 0;
      descriptor->SetAscending(ascending);
      array->SortUsingDescriptor(descriptor);
      std::stable_sort(oracle.begin(), oracle.end(), [=](Object const& a, Object const& b) {
        int const order = NumberOf(a) / 10 - NumberOf(b) / 10;
        return ascending ? order < 0 : order > 0;
      });
    } else if (operation == 6 && oracle.size() <= 40) {
      array->AddObjectsFromArray(array);
      std::vector<Object> const same = oracle;
      oracle.insert(oracle.end(), same.begin(), same.end());
    } else if (operation == 7) {
      array->SetArray(array);
      oracle.clear();
    }
    ASSERT_EQ(*array->GetInternalArray(), oracle) << "at step " << step;
  }
  for (std::size_t i = 1; i < pool.size(); ++i) {
    auto const held = std::count(oracle.begin(), oracle.end(), pool[i]);
    EXPECT_EQ(CountOf(*pool[i]), 1 + 2 * held);
  }
}
