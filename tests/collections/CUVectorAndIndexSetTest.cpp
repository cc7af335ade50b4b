#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <set>
#include <string>

#include "QuillmereLib/collections/CUIndexSet.h"
#include "QuillmereLib/collections/CUVector.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/Strings.h"

namespace {

template <class T>
std::string Describe(CUSharedPtr<CUVector<T>> (*create)(), std::vector<T> const& numbers) {
  CUSharedPtr<CUVector<T>> const vector = create();
  EXPECT_TRUE(vector->empty());
  vector->assign(numbers.begin(), numbers.end());
  return Utf8(vector->Description());
}

// "{ lowest, highest }" of a type.
template <class T>
std::string DescribeLimits(CUSharedPtr<CUVector<T>> (*create)()) {
  return Describe<T>(create, {std::numeric_limits<T>::min(), std::numeric_limits<T>::max()});
}

}  // namespace

// Red when a narrow number is printed as a character, or loses its sign or its width.
TEST(CUVector, DescribesNumbersOfEachType) {
  EXPECT_EQ(DescribeLimits(CreateCUVectorSInt8), "{ -128, 127 }");
  EXPECT_EQ(DescribeLimits(CreateCUVectorUInt8), "{ 0, 255 }");
  EXPECT_EQ(DescribeLimits(CreateCUVectorSInt16), "{ -32768, 32767 }");
  EXPECT_EQ(DescribeLimits(CreateCUVectorUInt16), "{ 0, 65535 }");
  EXPECT_EQ(DescribeLimits(CreateCUVectorSInt32), "{ -2147483648, 2147483647 }");
  EXPECT_EQ(DescribeLimits(CreateCUVectorUInt32), "{ 0, 4294967295 }");
  EXPECT_EQ(DescribeLimits(CreateCUVectorSInt64), "{ -9223372036854775808, 9223372036854775807 }");
  EXPECT_EQ(DescribeLimits(CreateCUVectorUInt64), "{ 0, 18446744073709551615 }");
  EXPECT_EQ(Describe(CreateCUVectorSInt8, {-1}), "{ -1 }");
  EXPECT_EQ(Describe(CreateCUVectorSInt32, {1, 2, 3}), "{ 1, 2, 3 }");
  EXPECT_EQ(Describe(CreateCUVectorSInt32, {}), "{}");
}

TEST(CUVector, IsASequenceAndAnObject) {
  CUVector<int> vector;
  vector = {3, 1};
  vector.push_back(2);
  CUVector<int> copy(vector);
  copy.pop_back();
  static_cast<CUObject&>(copy) = vector;
  EXPECT_EQ(copy.size(), 2u);
  copy = vector;
  std::vector<int> const& sequence = copy;
  EXPECT_EQ(sequence, (std::vector<int>{3, 1, 2}));

  CUSharedPtr<CUStringMac> text;
  FailEachAllocation([&] { text = copy.Description(); },
                     [&] {
                       if (text != nullptr) {
                         EXPECT_EQ(Utf8(text), "{ 3, 1, 2 }");
                       }
                     });
}

TEST(CUIndexSet, IsEmptyAsMade) {
  auto const set = CUIndexSet::Create();
  EXPECT_EQ(set->FirstIndex(), -1);
  EXPECT_EQ(set->LastIndex(), CUIndexSet::noIndex);
  EXPECT_FALSE(set->ContainsIndex(0));
  EXPECT_EQ(set->Init(), CUResult_Success);
  EXPECT_EQ(Utf8(set->Description()).substr(0, 13), "10CUIndexSet(");
}

// Red when numbers below 0 get in, a number counts twice, or the ends are not the extremes.
TEST(CUMutableIndexSet, AgreesWithAnOracle) {
  auto const set = CUMutableIndexSet::Create();
  std::set<int> oracle;
  std::mt19937 random(20240607);
  int const extremes[] = {std::numeric_limits<int>::min(), -1, 0, std::numeric_limits<int>::max()};
  for (int step = 0; step < 4000; ++step) {
    int const index =
        step % 10 == 0 ? extremes[random() % 4] : static_cast<int>(random() % 40) - 10;
    auto const operation = random() % 200;
    if (operation < 100) {
      set->AddIndex(index);
      if (index >= 0) oracle.insert(index);
    } else if (operation < 199) {
      set->RemoveIndex(index);
      oracle.erase(index);
    } else {
      set->RemoveAllIndexes();
      oracle.clear();
    }
    ASSERT_EQ(set->ContainsIndex(index), oracle.count(index) != 0) << index << " at step " << step;
    ASSERT_EQ(set->FirstIndex(), oracle.empty() ? -1 : *oracle.begin()) << "at step " << step;
    ASSERT_EQ(set->LastIndex(), oracle.empty() ? -1 : *oracle.rbegin()) << "at step " << step;
  }
}
