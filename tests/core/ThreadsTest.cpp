// Threads, locks, the scope that holds one, and events.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "QuillmereLib/core/CUEventWaitHandle.h"
#include "QuillmereLib/core/CUThread.h"
#include "tests/support/InChild.h"
#include "tests/support/LoggingLock.h"
#include "tests/support/Threads.h"

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

constexpr auto kAuto = CUEventWaitHandle_AutoReset, kManual = CUEventWaitHandle_ManualReset;

// The fields of an event, to wake waiters without a signal, as the system may, and to wait beside
// WaitOne.
struct Fields {
  void* virtualTable;
  _CUEventWaitHandle_EventResetMode resetMode;
  pthread_cond_t condition;
  CUSharedPtr<CUMutex> lock;
  bool signaled;
};

Fields& FieldsOf(CUEventWaitHandle& event) { return reinterpret_cast<Fields&>(event); }

// Threads that wait for one event, each once.
class Waiters {
 public:
  Waiters(CUEventWaitHandle& event, int count) : m_event(event) {
    for (int i = 0; i < count; ++i) {
      m_threads.emplace_back([this] {
        ++m_entered;
        EXPECT_TRUE(m_event.WaitOne());
        ++m_woken;
      });
    }
    while (m_entered < count) std::this_thread::yield();
    CUSleep(40);
  }
  // Also ends where a test has failed.
  ~Waiters() {
    while (m_woken < m_entered) {
      m_event.Set();
      pthread_cond_broadcast(&FieldsOf(m_event).condition);
      std::this_thread::yield();
    }
    for (std::thread& thread : m_threads) thread.join();
  }

  // How many have come back, `expected` of them at last. It stays a moment for one too many.
  int Woken(int expected) {
    for (int i = 0; i < 125 && m_woken < expected; ++i) CUSleep(40);
    CUSleep(40);
    return m_woken;
  }

 private:
  CUEventWaitHandle& m_event;
  std::atomic<int> m_entered{0}, m_woken{0};
  std::vector<std::thread> m_threads;
};

}  // namespace

// Red when a wait returns before the thread has ended, or joins a second time.
TEST(CUThread, WaitsForTheEndOnce) {
  Worker worker;
  EXPECT_TRUE(worker.WaitOne());  // never started
  int data = 0;
  ASSERT_EQ(worker.Start(&data), 0);
  EXPECT_EQ(worker.GetData(), &data);
  worker.mayEnd = true;
  EXPECT_TRUE(worker.WaitOne());
  EXPECT_EQ(worker.runs, 1);
  EXPECT_TRUE(worker.WaitOne());
  worker.Join();
  CUThread::ThreadFunc_static_Common(static_cast<CUThread*>(&worker));
  EXPECT_EQ(worker.runs, 2);
  EXPECT_EQ(CUThread::ThreadFunc_static_Common(nullptr), nullptr);
}

TEST(CUThread, DestructorWaits) {
  static std::atomic<int> stage{0};
  struct Plain : CUThread {
    // Outlives the fields of a derived class, and so uses none.
    void* ThreadFunc() override {
      stage = 1;
      CUSleep(30);
      stage = 2;
      return nullptr;
    }
  };
  {
    Plain plain;
    ASSERT_EQ(plain.Start(nullptr), 0);
    while (stage == 0) sched_yield();  // or the base's body would run
  }
  EXPECT_EQ(stage.exchange(0), 2);
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
  EXPECT_EQ(CUSleep(4294968) + CUSleep(20), 0);  // the first wraps to less than a millisecond
  auto const slept = std::chrono::steady_clock::now() - before;
  EXPECT_TRUE(slept >= std::chrono::milliseconds(20) && slept < std::chrono::seconds(5));
}

TEST(CUEnvironment, CountsTheProcessorsOfThisProcess) {
  EXPECT_EQ(InChild([] {
              cpu_set_t one;
              CPU_ZERO(&one);
              CPU_SET(sched_getcpu(), &one);
              int const all = CUEnvironment::ProcessorCount();
              std::thread([&] { sched_setaffinity(0, sizeof one, &one); }).join();
              std::string const more = CUEnvironment::ProcessorCount() == all ? "" : "thread ";
              sched_setaffinity(0, sizeof one, &one);
              return more + std::to_string(CUEnvironment::ProcessorCount());
            }),
            "1");
}

// Red when the two forms are made alike, or when an exception of Unlock gets out.
TEST(CUAutoLock, FormsDifferWhereTheLockThrowsAndInLife) {
  EventLog log;
  CUSharedPtr<CULockAbstract> const onLock = new LoggingLock(log, LoggingLock::OnLock);
  EXPECT_THROW(CUAutoLock{onLock.Get()}, int);
  EXPECT_EQ(log.Take(), "lock") << "what was not entered is not left";
  EXPECT_NO_THROW(CUAutoLock{onLock});
  EXPECT_EQ(log.Take(), "lock unlock") << "goes on as if the lock were held";

  CUSharedPtr<CULockAbstract> const onUnlock = new LoggingLock(log, LoggingLock::OnUnlock);
  EXPECT_NO_THROW(CUAutoLock{onUnlock.Get()});
  EXPECT_NO_THROW(CUAutoLock{onUnlock});
  EXPECT_EQ(log.Take(), "lock unlock lock unlock");
  EXPECT_THROW(CUSimpleMonitor::Exit(onUnlock.Get()), int);
  EXPECT_THROW(CUSimpleMonitor::Enter(onLock), int);
  log.Take();

  CUSharedPtr<CULockAbstract> lock = new LoggingLock(log);
  {
    CUAutoLock const guard(lock);
    lock = nullptr;
    EXPECT_EQ(log.Take(), "lock");
  }
  EXPECT_EQ(log.Take(), "unlock ~lock");
  CUAutoLock const raw(lock.Get()), shared(lock);  // of none
}

TEST(CURecursiveLock, NestsOnOneThreadAndKeepsOthersOut) {
  CUSharedPtr<CULockAbstract> const lock = new CURecursiveLock;
  int count = 0;
  OnThreads(4, [&](int) {
    for (int i = 0; i < 20000; ++i) {
      CUAutoLock const outer(lock);
      { CUAutoLock const inner(lock.Get()); }
      ++count;
    }
  });
  EXPECT_EQ(count, 80000);
}

TEST(CUMutex, IsFreeAfterAsManyReleases) {
  CUMutex mutex;
  EXPECT_TRUE(mutex.WaitOne() && mutex.WaitOne());
  for (int const answer : {EBUSY, EBUSY, 0}) {
    OnThreads(1, [&](int) {
      EXPECT_EQ(pthread_mutex_trylock(mutex.GetMutex()), answer);
      if (answer == 0) mutex.ReleaseMutex();
    });
    EXPECT_EQ(mutex.ReleaseMutex(), answer == 0 ? EPERM : 0);
  }
}

TEST(CUEventWaitHandle, WakesOneOrAllByItsMode) {
  for (auto const mode : {kAuto, kManual}) {
    bool const isAuto = mode == kAuto;
    CUEventWaitHandle event(true, mode);
    EXPECT_TRUE(event.WaitOne());
    EXPECT_TRUE(isAuto || (event.WaitOne() && event.Reset()));
    Waiters waiters(event, 3);
    EXPECT_EQ(waiters.Woken(0), 0) << mode;
    for (int woken = isAuto ? 1 : 3; woken <= 3; ++woken) {
      EXPECT_TRUE(event.Set());
      EXPECT_EQ(waiters.Woken(woken), woken) << mode;
    }
    EXPECT_TRUE(isAuto || event.WaitOne());
  }
}

// Red when the single wait is made a loop that tests the flag again, or when a flag that is set is
// signalled again.
TEST(CUEventWaitHandle, AnyWakeUpEndsTheWaitAndNoFlagAlone) {
  for (auto const mode : {kAuto, kManual}) {
    CUEventWaitHandle event(false, mode);
    Waiters waiters(event, 2);
    Fields& fields = FieldsOf(event);
    fields.lock->WaitOne();
    fields.signaled = true;
    fields.lock->ReleaseMutex();
    event.Set();
    EXPECT_EQ(waiters.Woken(0), 0) << mode;
    event.Reset();
    pthread_cond_broadcast(&fields.condition);
    EXPECT_EQ(waiters.Woken(2), 2) << mode;
  }
}

// A thread that slept in WaitOne would touch the dead event on its way out, so it sleeps beside it.
TEST(CUEventWaitHandle, DestroyingWakesWaiters) {
  auto event = std::make_unique<CUManualResetEvent>(false);
  CUSharedPtr<CUMutex> const lock = FieldsOf(*event).lock;
  pthread_cond_t* const condition = &FieldsOf(*event).condition;
  std::atomic<bool> waiting{false};
  std::thread waiter([&] {
    lock->WaitOne();
    waiting = true;
    pthread_cond_wait(condition, lock->GetMutex());
    lock->ReleaseMutex();
  });
  while (!waiting) std::this_thread::yield();
  event.reset();
  waiter.join();
}
