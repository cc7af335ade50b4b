#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "QuillmereLib/collections/CUIndexSet.h"
#include "QuillmereLib/collections/CUVector.h"
#include "tests/support/Strings.h"

namespace {

// "{ lowest, highest }" of a type.
template <class T>
std::string DescribeLimits(CUSharedPtr<CUVector<T>> (*create)()) {
  CUSharedPtr<CUVector<T>> const vector = create();
  EXPECT_EQ(Utf8(vector->Description()), "{}");
  vector->assign({std::numeric_limits<T>::min(), std::numeric_limits<T>::max()});
  return Utf8(vector->Description());
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
}

TEST(CUVector, IsASequenceAndAnObject) {
  CUVector<int> vector;
  vector = {3, 1, 2};
  CUVector<int> copy(vector);
  copy.pop_back();
  static_cast<CUObject&>(copy) = vector;
  EXPECT_EQ(copy.size(), 2u);
  copy = vector;
  EXPECT_EQ(Utf8(copy.Description()), "{ 3, 1, 2 }");
}

// Red when numbers below 0 get in, a number counts twice, or the ends are not the extremes.
TEST(CUMutableIndexSet, HoldsEachNumberOnceFromZeroOn) {
  auto const set = CUMutableIndexSet::Create();
  auto const ends = [&set] {
    return std::to_string(set->FirstIndex()) + " " + std::to_string(set->LastIndex());
  };
  constexpr int kLowest = std::numeric_limits<int>::min(), kHighest = -(kLowest + 1);
  EXPECT_EQ(ends(), "-1 -1");
  for (int const index : {7, kHighest, 0, 7, -1, kLowest}) set->AddIndex(index);
  EXPECT_EQ(ends(), "0 " + std::to_string(kHighest));
  for (int const index : {0, 7, kHighest}) EXPECT_TRUE(set->ContainsIndex(index)) << index;
  for (int const index : {1, -1, kLowest}) EXPECT_FALSE(set->ContainsIndex(index)) << index;
  for (int const index : {0, kHighest, 5, -1}) set->RemoveIndex(index);
  EXPECT_EQ(ends(), "7 7");
  set->RemoveIndex(7);
  EXPECT_EQ(ends(), "-1 -1");
  set->AddIndex(1);
  set->RemoveAllIndexes();
  EXPECT_FALSE(set->ContainsIndex(1));
  EXPECT_EQ(set->Init(), CUResult_Success);
  EXPECT_EQ(Utf8(CUIndexSet::Create()->Description()).substr(0, 13), "10CUIndexSet(");
}
