#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "QuillmereLib/collections/CUSynchronizedQueue.h"
#include "tests/support/CountedObject.h"

TEST(CUSynchronizedQueue, KeepsTheOrderAndTellsNoNullFromNothing) {
  CUSynchronizedQueue queue;
  EXPECT_EQ(queue.Dequeue(), nullptr);
  CUSharedPtr<CUObject> const first = new CUObject;
  CUSharedPtr<CUObject> const second = new CUObject;
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
  struct Numbered : CUObject {
    Numbered(int producerNumber, int serialNumber)
        : producer(producerNumber), serial(serialNumber) {}
    int const producer;
    int const serial;
  };
  constexpr int kProducers = 3;
  constexpr int kObjects = 500;
  CUSynchronizedQueue queue;
  std::atomic<int> taken{0};
  std::atomic<int> seen[kProducers][kObjects] = {};
  std::vector<std::thread> threads;
  for (int producer = 0; producer < kProducers; ++producer) {
    threads.emplace_back([&queue, producer] {
      for (int i = 0; i < kObjects; ++i) queue.Enqueue(new Numbered(producer, i));
    });
    threads.emplace_back([&] {
      int last[kProducers] = {-1, -1, -1};
      while (taken < kProducers * kObjects) {
        CUSharedPtr<CUObject> const object = queue.Dequeue();
        if (object == nullptr) continue;
        auto const& numbered = dynamic_cast<Numbered&>(*object);
        EXPECT_GT(numbered.serial, last[numbered.producer]);
        last[numbered.producer] = numbered.serial;
        ++seen[numbered.producer][numbered.serial];
        ++taken;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (auto const& ofProducer : seen) {
    for (auto const& times : ofProducer) EXPECT_EQ(times, 1);
  }
}
