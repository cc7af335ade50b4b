// The queue between threads, and threads themselves, beside their peers.

#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>
#include <Poco/Thread.h>
#include <glib.h>
#include <pthread.h>

#include <QMutex>
#include <QQueue>
#include <QSharedPointer>
#include <QThread>
#include <deque>
#include <memory>

#include "QuillmereLib/collections/CUSynchronizedQueue.h"
#include "QuillmereLib/core/CUThread.h"
#include "benchmarks/Cases.h"

namespace {

constexpr int kQueued = 4;

// Queues behind one face. Each holds kQueued objects besides the one that is put in and the one
// that is taken out.

struct OurQueue {
  using Object = CUSharedPtr<CUObject>;
  CUSynchronizedQueue queue;
  static Object Make() { return new CUObject; }
  void Put(Object const& object) { queue.Enqueue(object); }
  Object Take() { return queue.Dequeue(); }
};

class PlainRecursiveMutex {
 public:
  PlainRecursiveMutex() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&m_mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
  }
  PlainRecursiveMutex(PlainRecursiveMutex const&) = delete;
  PlainRecursiveMutex& operator=(PlainRecursiveMutex const&) = delete;
  ~PlainRecursiveMutex() { pthread_mutex_destroy(&m_mutex); }
  void Lock() { pthread_mutex_lock(&m_mutex); }
  void Unlock() { pthread_mutex_unlock(&m_mutex); }

 private:
  pthread_mutex_t m_mutex;
};

struct StandardQueue {
  using Object = CUSharedPtr<CUObject>;
  PlainRecursiveMutex mutex;
  std::deque<Object> queue;
  static Object Make() { return new CUObject; }
  void Put(Object const& object) {
    mutex.Lock();
    queue.push_back(object);
    mutex.Unlock();
  }
  Object Take() {
    mutex.Lock();
    Object object = std::move(queue.front());
    queue.pop_front();
    mutex.Unlock();
    return object;
  }
};

struct QtQueue {
  struct Item {
    virtual ~Item() = default;
  };
  using Object = QSharedPointer<Item>;
  QRecursiveMutex mutex;
  QQueue<Object> queue;
  static Object Make() { return Object::create(); }
  void Put(Object const& object) {
    QMutexLocker<QRecursiveMutex> const guard(&mutex);
    queue.enqueue(object);
  }
  Object Take() {
    QMutexLocker<QRecursiveMutex> const guard(&mutex);
    return queue.dequeue();
  }
};

struct PocoQueue {
  using Object = Poco::Notification::Ptr;
  Poco::NotificationQueue queue;
  static Object Make() { return new Poco::Notification; }
  void Put(Object const& object) { queue.enqueueNotification(object); }
  Object Take() { return queue.dequeueNotification(); }
};

struct GLibQueue {
  using Object = std::shared_ptr<int>;
  std::unique_ptr<GAsyncQueue, void (*)(GAsyncQueue*)> queue{g_async_queue_new(),
                                                             g_async_queue_unref};
  ~GLibQueue() {
    while (g_async_queue_try_pop(queue.get()) != nullptr) continue;
  }
  // The queue does not count its objects: all are this one, which outlives it.
  static Object Make() { return std::make_shared<int>(); }
  void Put(Object const& object) { g_async_queue_push(queue.get(), object.get()); }
  void* Take() { return g_async_queue_try_pop(queue.get()); }
};

template <class Queue>
void RegisterQueue(std::string const& peer) {
  auto const queue = std::make_shared<Queue>();
  auto const object = Queue::Make();
  for (int i = 0; i < kQueued; ++i) queue->Put(object);
  MeasureChecked("threads/queue/" + peer, true, [queue, object] {
    queue->Put(object);
    auto const taken = queue->Take();
    return taken != nullptr;
  });
}

// Threads with a body that adds 1 to a number. An iteration makes one, starts it, waits for its end
// and drops it.

struct OurThread : CUThread {
  ~OurThread() override { Join(); }
  void* ThreadFunc() override {
    ++*static_cast<int*>(GetData());
    return nullptr;
  }
};

struct QtThread : QThread {
  int* number = nullptr;
  void run() override { ++*number; }
};

struct PocoBody : Poco::Runnable {
  int* number = nullptr;
  void run() override { ++*number; }
};

template <class Operation>
void RegisterStart(std::string const& peer, Operation startAndJoin) {
  MeasureChecked("threads/start_join/" + peer, 1, [startAndJoin] {
    int number = 0;
    startAndJoin(&number);
    return number;
  })->UseRealTime();
}

void* AddOne(void* number) {
  ++*static_cast<int*>(number);
  return nullptr;
}

void RegisterStarts() {
  RegisterStart("quillmere", [](int* number) {
    OurThread thread;
    thread.Start(number);
    thread.Join();
  });
  RegisterStart("pthread", [](int* number) {
    pthread_t thread;
    if (pthread_create(&thread, nullptr, AddOne, number) == 0) pthread_join(thread, nullptr);
  });
  RegisterStart("std_thread", [](int* number) { std::thread(AddOne, number).join(); });
  RegisterStart("qthread", [](int* number) {
    QtThread thread;
    thread.number = number;
    thread.start();
    thread.wait();
  });
  RegisterStart("poco_thread", [](int* number) {
    PocoBody body;
    body.number = number;
    Poco::Thread thread;
    thread.start(body);
    thread.join();
  });
  RegisterStart("g_thread",
                [](int* number) { g_thread_join(g_thread_new(nullptr, AddOne, number)); });
}

void RegisterAll() {
  RegisterQueue<OurQueue>("quillmere");
  RegisterQueue<StandardQueue>("std_deque");
  RegisterQueue<QtQueue>("qqueue");
  RegisterQueue<PocoQueue>("poco_notification_queue");
  RegisterQueue<GLibQueue>("g_async_queue");
  RegisterStarts();
}

}  // namespace

int main(int argc, char** argv) { return RunCases(argc, argv, RegisterAll); }
