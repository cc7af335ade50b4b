// Threads and what stands beside them.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/sysctl.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "QuillmereLib/core/CUThread.h"
#include "tests/support/InChild.h"

namespace {

// Counts its runs, and ends only when it may.
class Worker : public CUThread {
 public:
  ~Worker() override { Join(); }

  void* ThreadFunc() override {
    while (!mayEnd) sched_yield();
    ++runs;
    return GetData();
  }

  std::atomic<bool> mayEnd{false};
  std::atomic<int> runs{0};
};

}  // namespace

// Red when a wait returns before the thread has ended, or joins a second time.
TEST(CUThread, WaitsForTheEndOnce) {
  Worker worker;
  EXPECT_TRUE(worker.WaitOne());  // never started
  int data = 0;
  ASSERT_EQ(worker.Start(&data), 0);
  EXPECT_EQ(worker.GetData(), &data);
  EXPECT_EQ(worker.runs, 0);
  worker.mayEnd = true;
  EXPECT_TRUE(worker.WaitOne());
  EXPECT_EQ(worker.runs, 1);
  EXPECT_TRUE(worker.WaitOne());
  worker.Join();
}

TEST(CUThread, DestructorWaits) {
  static std::atomic<bool> begun, ended;
  begun = ended = false;
  struct Plain : CUThread {
    // Outlives the fields of a derived class, and so uses none.
    void* ThreadFunc() override {
      begun = true;
      CUSleep(30);
      ended = true;
      return nullptr;
    }
  };
  auto plain = std::make_unique<Plain>();
  ASSERT_EQ(plain->Start(nullptr), 0);
  while (!begun) sched_yield();  // or the base's body would run
  plain.reset();
  EXPECT_TRUE(ended);
}

TEST(CUThread, EntriesRunTheBody) {
  Worker worker;
  worker.mayEnd = true;
  EXPECT_EQ(CUThread::ThreadFunc_static(nullptr), nullptr);
  EXPECT_EQ(CUThread::ThreadFunc_static_Common(nullptr), nullptr);
  CUThread::ThreadFunc_static(static_cast<CUThread*>(&worker));
  CUThread::ThreadFunc_static_Common(static_cast<CUThread*>(&worker));
  EXPECT_EQ(worker.runs, 2);
  EXPECT_EQ(CUThread().ThreadFunc(), nullptr);
}

// A thread that the system refuses counts as started, and waiting for it must not touch anything.
TEST(CUThread, RefusedThreadIsNotJoined) {
  EXPECT_EQ(InChild([] {
              BecomeNobody();
              rlimit const none = {0, 0};
              setrlimit(RLIMIT_NPROC, &none);
              CUThread thread;
              int const result = thread.Start(nullptr);
              thread.Join();
              return std::to_string(result) + (thread.WaitOne() ? " waited" : "");
            }),
            std::to_string(EAGAIN) + " waited");
}

TEST(CUThread, SleepsMillisecondsOf32Bits) {
  auto const before = std::chrono::steady_clock::now();
  EXPECT_EQ(CUSleep(0), 0);
  EXPECT_EQ(CUSleep(4294968), 0);  // wraps to less than a millisecond
  auto const middle = std::chrono::steady_clock::now();
  EXPECT_LT(middle - before, std::chrono::seconds(5));
  EXPECT_EQ(CUSleep(20), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - middle, std::chrono::milliseconds(20));
}

TEST(CUEnvironment, CountsTheProcessorsOfThisProcess) {
  EXPECT_EQ(InChild([] {
              auto const pinned = [] {
                cpu_set_t one;
                CPU_ZERO(&one);
                CPU_SET(sched_getcpu(), &one);
                sched_setaffinity(0, sizeof one, &one);
                return CUEnvironment::ProcessorCount();
              };
              int const all = CUEnvironment::ProcessorCount();
              int ofThread = 0;
              std::thread([&] { ofThread = pinned(); }).join();
              return std::to_string(ofThread - all) + std::to_string(pinned());
            }),
            "01");
  int count = 0;
  std::size_t size = sizeof count;
  ASSERT_EQ(sysctlbyname("hw.activecpu", &count, &size, nullptr, 0), 0);
  EXPECT_EQ(CUEnvironment::ProcessorCount(), count < 2 ? 1 : count);

  size = sizeof count - 1;
  EXPECT_EQ(sysctlbyname("hw.activecpu", &count, &size, nullptr, 0), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(sysctlbyname("hw.unknown", &count, &size, nullptr, 0), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(sysctlbyname("hw.activecpu", nullptr, nullptr, &count, sizeof count), -1);
  EXPECT_EQ(errno, EPERM);
}
