#pragma once

// Work that threads do at the same time.

#include <thread>
#include <vector>

// Runs work(0), work(1)... on `count` threads, one for each, and waits for all of them.
template <class Work>
void OnThreads(int count, Work const& work) {
  std::vector<std::thread> threads;
  for (int number = 0; number < count; ++number) {
    threads.emplace_back([&work, number] { work(number); });
  }
  for (std::thread& thread : threads) thread.join();
}
