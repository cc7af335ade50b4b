// Counted pointers, locks and events beside their peers.

#include <Poco/AutoPtr.h>
#include <Poco/Event.h>
#include <Poco/Mutex.h>
#include <Poco/RefCountedObject.h>
#include <glib-object.h>
#include <pthread.h>

#include <QMutex>
#include <QSharedPointer>
#include <atomic>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "QuillmereLib/core/CUEventWaitHandle.h"
#include "QuillmereLib/core/CULock.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "benchmarks/Cases.h"

namespace {

// Objects with a virtual destructor and a number, in the base class that each pointer asks for.

struct Item : CUObject {
  int number = 0;
};

struct BoostItem : boost::intrusive_ref_counter<BoostItem, boost::thread_safe_counter> {
  virtual ~BoostItem() = default;
  int number = 0;
};

struct PocoItem : Poco::RefCountedObject {
  int number = 0;
};

struct PlainItem {
  virtual ~PlainItem() = default;
  int number = 0;
};

template <class Pointer, class Make>
void RegisterPointer(std::string const& peer, Make make) {
  Measure("core/pointer_copy/" + peer, [source = make()]() -> Pointer { return source; });

  std::vector<Pointer> sources;
  for (int i = 0; i < 1000; ++i) sources.push_back(make());
  Measure("core/pointer_array_copy/" + peer,
          [sources = std::move(sources)]() -> std::vector<Pointer> { return sources; });
}

void RegisterPointers() {
  RegisterPointer<CUSharedPtr<Item>>("quillmere", [] { return CUSharedPtr<Item>(new Item); });
  RegisterPointer<boost::intrusive_ptr<BoostItem>>(
      "boost_intrusive_ptr", [] { return boost::intrusive_ptr<BoostItem>(new BoostItem); });
  RegisterPointer<std::shared_ptr<PlainItem>>("std_shared_ptr",
                                              [] { return std::make_shared<PlainItem>(); });
  RegisterPointer<QSharedPointer<PlainItem>>("qsharedpointer",
                                             [] { return QSharedPointer<PlainItem>::create(); });
  RegisterPointer<Poco::AutoPtr<PocoItem>>("poco_autoptr",
                                           [] { return Poco::AutoPtr<PocoItem>(new PocoItem); });
}

// Locks. Each is taken and left once, uncontended, by its library's own scope.
void RegisterLocks() {
  CUSharedPtr<CULockAbstract> const lock(new CURecursiveLock);
  auto const standard = std::make_shared<std::recursive_mutex>();
  auto const locked = [standard] {
    std::lock_guard<std::recursive_mutex> guard(*standard);
    benchmark::ClobberMemory();
    return 0;
  };

  Measure("core/lock/quillmere", [lock] {
    CUAutoLock const guard(lock.Get());
    benchmark::ClobberMemory();
    return 0;
  });
  Measure("core/lock/std_recursive_mutex", locked);
  Measure("core/lock/qrecursivemutex", [mutex = std::make_shared<QRecursiveMutex>()] {
    QMutexLocker<QRecursiveMutex> const guard(mutex.get());
    benchmark::ClobberMemory();
    return 0;
  });
  Measure("core/lock/poco_mutex", [mutex = std::make_shared<Poco::Mutex>()] {
    Poco::Mutex::ScopedLock const guard(*mutex);
    benchmark::ClobberMemory();
    return 0;
  });

  Measure("core/lock_shared/quillmere", [lock] {
    CUAutoLock const guard(lock);
    benchmark::ClobberMemory();
    return 0;
  });
  Measure("core/lock_shared/std_recursive_mutex", locked);
}

// Events that one wait uses up.

struct PlainEvent {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
  bool signaled = false;

  void Wait() {
    pthread_mutex_lock(&mutex);
    if (!signaled) pthread_cond_wait(&condition, &mutex);
    signaled = false;
    pthread_mutex_unlock(&mutex);
  }
  void Set() {
    pthread_mutex_lock(&mutex);
    if (!signaled) {
      signaled = true;
      pthread_cond_signal(&condition);
    }
    pthread_mutex_unlock(&mutex);
  }
};

struct StandardEvent {
  std::mutex mutex;
  std::condition_variable condition;
  bool signaled = false;

  void Wait() {
    std::unique_lock<std::mutex> guard(mutex);
    condition.wait(guard, [this] { return signaled; });
    signaled = false;
  }
  void Set() {
    std::lock_guard<std::mutex> guard(mutex);
    signaled = true;
    condition.notify_one();
  }
};

struct QuillmereEvent {
  CUAutoResetEvent event{false};
  void Wait() { event.WaitOne(); }
  void Set() { event.Set(); }
};

struct PocoEvent {
  Poco::Event event;
  void Wait() { event.wait(); }
  void Set() { event.set(); }
};

// An iteration is a signal to a second thread and the answer to it. A wait that ends too early does
// no harm: both sides always signal before they wait.
template <class Event>
void PingPong(benchmark::State& state) {
  Event ping;
  Event pong;
  std::atomic<bool> over{false};
  std::thread partner([&] {
    for (;;) {
      ping.Wait();
      if (over) return;
      pong.Set();
    }
  });
  for (auto _ : state) {
    ping.Set();
    pong.Wait();
  }
  over = true;
  ping.Set();
  partner.join();
}

template <class Event>
void RegisterPingPong(char const* name) {
  benchmark::RegisterBenchmark(name, PingPong<Event>)->UseRealTime();
}

void RegisterAll() {
  RegisterPointers();
  RegisterLocks();
  RegisterPingPong<QuillmereEvent>("core/event_ping_pong/quillmere");
  RegisterPingPong<PlainEvent>("core/event_ping_pong/pthread_cond");
  RegisterPingPong<StandardEvent>("core/event_ping_pong/std_condition_variable");
  RegisterPingPong<PocoEvent>("core/event_ping_pong/poco_event");
}

}  // namespace

int main(int argc, char** argv) { return RunCases(argc, argv, RegisterAll); }
