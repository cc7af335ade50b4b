// The queue, vectors of numbers and the index set.

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <string>

#include "QuillmereLib/collections/CUIndexSet.h"
#include "QuillmereLib/collections/CUSynchronizedQueue.h"
#include "QuillmereLib/collections/CUVector.h"
#include "tests/support/CountedObject.h"
#include "tests/support/Strings.h"
#include "tests/support/Threads.h"

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

TEST(CUSynchronizedQueue, KeepsTheOrderAndTellsNoNullFromNothing) {
  CUSynchronizedQueue queue;
  CUSharedPtr<CUObject> const first = new CUObject, second = new CUObject;
  queue.Enqueue(first);
  queue.Enqueue(nullptr);
  queue.Enqueue(second);
  EXPECT_EQ(queue.Dequeue(), first);
  EXPECT_EQ(queue.Dequeue(), nullptr);
  EXPECT_EQ(queue.Dequeue(), second);
  EXPECT_EQ(queue.Dequeue(), nullptr);
  queue.Enqueue(first);
  queue.Clear();
  EXPECT_EQ(CountOf(*first), 1);
}

// Red when two threads are given one object, one is lost, or a producer's order is broken.
TEST(CUSynchronizedQueue, HandsEachObjectToOneThread) {
  constexpr int kProducers = 3;
  constexpr int kObjects = 500;
  CUSynchronizedQueue queue;
  std::atomic<int> taken{0};
  std::atomic<int> seen[kProducers * kObjects] = {};
  OnThreads(2 * kProducers, [&](int thread) {
    for (int i = 0; thread < kProducers && i < kObjects; ++i) {
      queue.Enqueue(new CountedObject(thread * kObjects + i));
    }
    int last[kProducers] = {-1, -1, -1};
    while (taken < kProducers * kObjects) {
      CUSharedPtr<CUObject> const object = queue.Dequeue();
      if (object == nullptr) continue;
      int const number = dynamic_cast<CountedObject&>(*object).Value();
      EXPECT_GT(number, last[number / kObjects]);
      last[number / kObjects] = number;
      ++seen[number];
      ++taken;
    }
  });
  for (auto const& times : seen) EXPECT_EQ(times, 1);
}

// Red when a narrow number is printed as a character, or loses its sign or its width.
TEST(CUVector, DescribesNumbersOfEachType) {
  EXPECT_EQ(DescribeLimits(CreateCUVectorSInt8), "{ -128, 127 }");
  EXPECT_EQ(DescribeLimits(CreateCUVectorUInt8), "{ 0, 255 }");
  EXPECT_EQ(DescribeLimits(CreateCUVectorUInt32), "{ 0, 4294967295 }");
  EXPECT_EQ(DescribeLimits(CreateCUVectorSInt64), "{ -9223372036854775808, 9223372036854775807 }");
  EXPECT_EQ(DescribeLimits(CreateCUVectorUInt64), "{ 0, 18446744073709551615 }");
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
  set->RemoveAllIndexes();
  EXPECT_EQ(ends(), "-1 -1");
}
