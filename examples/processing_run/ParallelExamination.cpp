#include "ParallelExamination.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "FileExamination.h"
#include "StopRequest.h"
#include "VisibleText.h"
#include "WaitingQueue.h"

namespace {

// Where the calling thread and the examining ones meet.
struct Exchange {
  WaitingQueue todo;
  CUSynchronizedQueue done;
  std::atomic<unsigned long long> bytesRead{0};
  CUAutoResetEvent news{false};  // something is done, or bytes have been read
};

class Examiner : public CUThread {
 public:
  explicit Examiner(Exchange& exchange)
      : m_exchange(exchange), m_examination([&exchange](unsigned long long count) {
          exchange.bytesRead += count;
          exchange.news.Set();
        }) {}
  ~Examiner() override { Join(); }

  void* ThreadFunc() override {
    while (true) {
      CUSharedPtr<CUObject> const object = m_exchange.todo.Take();
      auto* const task = dynamic_cast<FileTask*>(object.Get());
      if (task == nullptr) return nullptr;
      try {
        m_examination.Examine(*task);
      } catch (std::exception const& failure) {
        task->failure = failure.what();
      }
      m_exchange.done.Enqueue(object);
      m_exchange.news.Set();
    }
  }

 private:
  Exchange& m_exchange;
  FileExamination m_examination;
};

// The threads, which go home when it ends.
class Crew {
 public:
  Crew(Exchange& exchange, unsigned int count) : m_closing{exchange.todo} {
    int error = 0;
    while (m_threads.size() < count && error == 0) {
      auto thread = std::make_unique<Examiner>(exchange);
      error = thread->Start(nullptr);
      if (error == 0) m_threads.push_back(std::move(thread));
    }
    if (m_threads.empty()) {
      throw std::runtime_error("no thread can be started: " +
                               std::generic_category().message(error));
    }
  }

  std::size_t Size() const { return m_threads.size(); }

 private:
  struct Closing {
    WaitingQueue& queue;
    ~Closing() { queue.Close(); }
  };

  std::vector<std::unique_ptr<Examiner>> m_threads;
  Closing m_closing;  // before the threads are waited for
};

}  // namespace

void ExamineFiles(std::vector<CUSharedPtr<FileTask>> const& tasks, unsigned int threadCount,
                  ProgressBar& bar, Failures& failures) {
  if (tasks.empty()) return;
  Exchange exchange;
  Crew const crew(exchange,
                  static_cast<unsigned int>(std::min<std::size_t>(threadCount, tasks.size())));
  std::size_t const mostAway = crew.Size() * 4;
  std::size_t sent = 0;
  std::size_t back = 0;
  std::size_t told = 0;
  while (true) {
    while (sent < tasks.size() && sent - back < mostAway && !StopRequested()) {
      exchange.todo.Put(tasks[sent++]);
    }
    if (sent == back) return;

    exchange.news.WaitOne();
    bar.SetBytes(exchange.bytesRead);
    while (CUSharedPtr<CUObject> const object = exchange.done.Dequeue()) {
      auto* const task = dynamic_cast<FileTask*>(object.Get());
      if (task == nullptr) continue;
      task->isBack = true;
      ++back;
      bar.AddFile();
    }
    for (; told < sent && tasks[told]->isBack; ++told) {
      FileTask& task = *tasks[told];
      if (!task.failure.empty()) failures.Add(Utf8Of(*task.path), task.failure);
    }
  }
}
