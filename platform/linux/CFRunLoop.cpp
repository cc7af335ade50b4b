#include <CoreFoundation/CFRunLoop.h>
#include <CoreFoundation/CFString.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <vector>

#include "platform/linux/CFRunLoopObject.h"

CFRunLoopMode const kCFRunLoopDefaultMode = CFSTR("kCFRunLoopDefaultMode");

namespace {

using Microseconds = gint64;

// What a thread keeps: the run loop that it asked for last, and a context of its own if it ever
// needed one.
struct ThreadLoops {
  ~ThreadLoops() {
    if (current != nullptr) CFRelease(current);
    if (own != nullptr) g_main_context_unref(own);
  }

  __CFRunLoop* current = nullptr;
  GMainContext* own = nullptr;
};
thread_local ThreadLoops t_loops;

// Whether this thread may run the process-wide context: it does so already, or it is the main
// thread and no other does.
bool OwnsDefaultContext() {
  thread_local bool const isMainThread = getpid() == gettid();
  GMainContext* const context = g_main_context_default();
  if (g_main_context_is_owner(context)) return true;
  if (!isMainThread || !g_main_context_acquire(context)) return false;
  g_main_context_release(context);
  return true;
}

GMainContext* ContextOfThread() {
  GMainContext* const chosen = g_main_context_get_thread_default();
  if (chosen != nullptr) return chosen;
  if (t_loops.own != nullptr && g_main_context_is_owner(t_loops.own)) return t_loops.own;
  if (OwnsDefaultContext()) return g_main_context_default();
  if (t_loops.own == nullptr) t_loops.own = g_main_context_new();
  return t_loops.own;
}

// Makes a context this thread's own and its default one. A thread that has none of its own gets no
// lasting one, since what the application starts later on it would be reported there and never
// come.
class Running {
 public:
  explicit Running(GMainContext* context) : m_context(context) {
    m_acquired = g_main_context_acquire(m_context) != FALSE;
    if (m_acquired) g_main_context_push_thread_default(m_context);
  }
  Running(Running const&) = delete;
  Running& operator=(Running const&) = delete;
  ~Running() {
    if (!m_acquired) return;
    g_main_context_pop_thread_default(m_context);
    g_main_context_release(m_context);
  }
  bool Acquired() const { return m_acquired; }

 private:
  GMainContext* const m_context;
  bool m_acquired;
};

enum class Turn { Handled, Nothing, Empty };

// One turn of the loop, as the main loop makes it: waits until a source is ready or `end` has come,
// and calls the sources that are.
Turn TurnOnce(GMainContext* context, std::vector<GPollFD>* descriptors, Microseconds end) {
  int priority = 0;
  bool const ready = g_main_context_prepare(context, &priority) != FALSE;
  int timeout = -1;
  int count = 0;
  for (;;) {
    int const room = static_cast<int>(descriptors->size());
    count = g_main_context_query(context, priority, &timeout, descriptors->data(), room);
    if (count <= room) break;
    descriptors->resize(static_cast<std::size_t>(count));
  }

  // The first descriptor is that by which other threads wake the context. A source that waits for
  // nothing but such a waking is not seen here.
  if (!ready && timeout < 0 && count <= 1) return Turn::Empty;
  Microseconds const left = std::max<Microseconds>(end - g_get_monotonic_time(), 0);
  Microseconds const milliseconds = std::min<Microseconds>((left + 999) / 1000, 1000 * 1000);
  if (timeout < 0 || timeout > milliseconds) timeout = static_cast<int>(milliseconds);
  g_main_context_get_poll_func(context)(descriptors->data(), static_cast<guint>(count), timeout);
  if (g_main_context_check(context, priority, descriptors->data(), count) == FALSE) {
    return Turn::Nothing;
  }
  g_main_context_dispatch(context);
  return Turn::Handled;
}

Microseconds EndOf(CFTimeInterval seconds) {
  constexpr double kLongest = 1e9;
  double const within = seconds > 0 ? std::min(seconds, kLongest) : 0;
  return g_get_monotonic_time() + std::llround(within * 1e6);
}

}  // namespace

CFRunLoopRef CFRunLoopGetCurrent() {
  GMainContext* const context = ContextOfThread();
  if (t_loops.current != nullptr && t_loops.current->context == context) return t_loops.current;
  __CFRunLoop* const made = MakeCFObject<__CFRunLoop>(0, context);
  if (made == nullptr) return nullptr;
  if (t_loops.current != nullptr) CFRelease(t_loops.current);
  return t_loops.current = made;
}

bool KeepRunLoop(CFRunLoopRef runLoop) {
  bool const isOwn = runLoop != nullptr && runLoop == CFRunLoopGetCurrent();
  return isOwn && g_main_context_acquire(runLoop->context) != FALSE;
}

void LetRunLoopGo(GMainContext* context) { g_main_context_release(context); }

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled) {
  if (mode != kCFRunLoopDefaultMode) return kCFRunLoopRunFinished;
  Microseconds const end = EndOf(seconds);
  GMainContext* const context = ContextOfThread();
  Running const running(context);
  if (!running.Acquired()) {
    // Another thread runs this thread's context: what comes, comes there.
    g_usleep(static_cast<gulong>(std::max<Microseconds>(end - g_get_monotonic_time(), 0)));
    return kCFRunLoopRunTimedOut;
  }
  try {
    std::vector<GPollFD> descriptors(8);
    for (;;) {
      Turn const turn = TurnOnce(context, &descriptors, end);
      if (turn == Turn::Empty) return kCFRunLoopRunFinished;
      if (turn == Turn::Handled && returnAfterSourceHandled) return kCFRunLoopRunHandledSource;
      if (g_get_monotonic_time() >= end) return kCFRunLoopRunTimedOut;
    }
  } catch (std::bad_alloc const&) {
    // Without memory to wait with, the time is over. Callers turn the loop until what they wait for
    // has come, and an exception would take away what it comes to.
    return kCFRunLoopRunTimedOut;
  }
}
