// Locks, the scope that holds one, and events.

#include <gtest/gtest.h>
#include <sched.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "QuillmereLib/core/CUEventWaitHandle.h"
#include "tests/support/LoggingLock.h"
#include "tests/support/Threads.h"

namespace {

constexpr _CUEventWaitHandle_EventResetMode kModes[] = {CUEventWaitHandle_AutoReset,
                                                        CUEventWaitHandle_ManualReset};

void Pause() { std::this_thread::sleep_for(std::chrono::milliseconds(40)); }

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
    Pause();
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
    for (int i = 0; i < 125 && m_woken < expected; ++i) Pause();
    Pause();
    return m_woken;
  }

 private:
  CUEventWaitHandle& m_event;
  std::atomic<int> m_entered{0}, m_woken{0};
  std::vector<std::thread> m_threads;
};

}  // namespace

TEST(CULock, NullLocksAndTheAbstractLockDoNothing) {
  for (CUSharedPtr<CULockAbstract> const& lock :
       {CUSharedPtr<CULockAbstract>(), CUSharedPtr<CULockAbstract>(new CULockAbstract)}) {
    CUSimpleMonitor::Enter(lock);
    CUSimpleMonitor::Exit(lock);
    CUSimpleMonitor::Enter(lock.Get());
    CUSimpleMonitor::Exit(lock.Get());
    CUAutoLock const raw(lock.Get());
    CUAutoLock const shared(lock);
  }
}

// Red when the two forms are made alike, or when an exception of Unlock gets out.
TEST(CUAutoLock, RawAndSharedFormsDifferWhenTheLockThrows) {
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
}

TEST(CUAutoLock, SharedFormKeepsTheLockAlive) {
  EventLog log;
  CUSharedPtr<CULockAbstract> lock = new LoggingLock(log);
  {
    CUAutoLock const guard(lock);
    lock = nullptr;
    EXPECT_EQ(log.Take(), "lock");
  }
  EXPECT_EQ(log.Take(), "unlock ~lock");
}

TEST(CURecursiveLock, NestsOnOneThreadAndKeepsOthersOut) {
  CUSharedPtr<CULockAbstract> const lock = new CURecursiveLock;
  std::atomic<int> inside{0};
  OnThreads(4, [&](int) {
    for (int i = 0; i < 1000; ++i) {
      CUAutoLock const outer(lock);
      { CUAutoLock const inner(lock.Get()); }
      EXPECT_EQ(++inside, 1);
      sched_yield();
      --inside;
    }
  });
}

TEST(CUMutex, IsFreeAfterAsManyReleases) {
  CUMutex mutex;
  EXPECT_TRUE(mutex.WaitOne() && mutex.WaitOne());
  for (int const answer : {EBUSY, EBUSY, 0}) {
    OnThreads(1, [&](int) {
      EXPECT_EQ(pthread_mutex_trylock(mutex.GetMutex()), answer);
      if (answer == 0) mutex.ReleaseMutex();
    });
    if (answer != 0) {
      EXPECT_EQ(mutex.ReleaseMutex(), 0);
    }
  }
  EXPECT_FALSE(CUWaitHandle().WaitOne());
}

TEST(CUMutex, ReleaseGivesTheSystemsAnswer) { EXPECT_EQ(CUMutex().ReleaseMutex(), EPERM); }

TEST(CUEventWaitHandle, AutoResetHandsTheSignalToOneWaiter) {
  CUAutoResetEvent event(true);
  EXPECT_TRUE(event.WaitOne());
  Waiters waiters(event, 3);
  EXPECT_EQ(waiters.Woken(0), 0) << "the finished wait has cleared the flag";
  for (int woken = 1; woken <= 3; ++woken) {
    EXPECT_TRUE(event.Set());
    EXPECT_EQ(waiters.Woken(woken), woken);
  }
}

TEST(CUEventWaitHandle, ManualResetLetsAllThroughUntilReset) {
  CUManualResetEvent event(true);
  EXPECT_TRUE(event.WaitOne() && event.WaitOne());
  EXPECT_TRUE(event.Reset());
  Waiters waiters(event, 3);
  EXPECT_EQ(waiters.Woken(0), 0);
  event.Set();
  EXPECT_EQ(waiters.Woken(3), 3);
  EXPECT_TRUE(event.WaitOne());
}

TEST(CUEventWaitHandle, SetOnASignalledEventWakesNobody) {
  for (auto const mode : kModes) {
    CUEventWaitHandle event(false, mode);
    Waiters waiters(event, 1);
    Fields& fields = FieldsOf(event);
    fields.lock->WaitOne();
    fields.signaled = true;
    fields.lock->ReleaseMutex();
    event.Set();
    EXPECT_EQ(waiters.Woken(0), 0) << mode;
    event.Reset();
    event.Set();
    EXPECT_EQ(waiters.Woken(1), 1) << mode;
  }
}

// Red when the single wait is made a loop that tests the flag again.
TEST(CUEventWaitHandle, AnyWakeUpEndsTheWait) {
  for (auto const mode : kModes) {
    CUEventWaitHandle event(false, mode);
    Waiters waiters(event, 2);
    pthread_cond_broadcast(&FieldsOf(event).condition);
    EXPECT_EQ(waiters.Woken(2), 2) << mode;
    Waiters pulsed(event, 1);
    event.Set();
    event.Reset();
    EXPECT_EQ(pulsed.Woken(1), 1) << mode;
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
