#include <gtest/gtest.h>

#include <atomic>

#include "QuillmereLib/collections/CUSynchronizedQueue.h"
#include "tests/support/CountedObject.h"
#include "tests/support/Threads.h"

TEST(CUSynchronizedQueue, KeepsTheOrderAndTellsNoNullFromNothing) {
  CUSynchronizedQueue queue;
  EXPECT_EQ(queue.Dequeue(), nullptr);
  CUSharedPtr<CUObject> const first = new CUObject, second = new CUObject;
  queue.Enqueue(first);
  queue.Enqueue(nullptr);
  queue.Enqueue(second);
  EXPECT_EQ(queue.Dequeue(), first);
  EXPECT_EQ(queue.Dequeue(), nullptr);
  EXPECT_EQ(queue.Dequeue(), second);
  EXPECT_EQ(queue.Dequeue(), nullptr);
  queue.Enqueue(first);
  EXPECT_EQ(CountOf(*first), 2);
  queue.Clear();
  EXPECT_EQ(CountOf(*first), 1);
  EXPECT_EQ(queue.Dequeue(), nullptr);
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
