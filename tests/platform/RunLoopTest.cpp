#include <CoreFoundation/CFRunLoop.h>
#include <CoreFoundation/CFString.h>
#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "platform/linux/CFRunLoopObject.h"
#include "platform/linux/Handles.h"

namespace {

using Work = std::function<void()>;

gboolean CallWork(gpointer work) {
  (*static_cast<Work*>(work))();
  return G_SOURCE_REMOVE;
}

// Calls `work`, which must live as long, once on the context after so many milliseconds.
void After(unsigned milliseconds, GMainContext* context, Work* work) {
  SourceHandle const source(g_timeout_source_new(milliseconds));
  g_source_set_callback(source.Get(), CallWork, work, nullptr);
  g_source_attach(source.Get(), context);
}

CFRunLoopRunResult Turn(double seconds, bool untilHandled) {
  return CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, untilHandled);
}

// Like CFRunLoopRunInMode, and at least and at most how long it may take, in seconds.
void ExpectRun(CFRunLoopRunResult expected, double seconds, bool untilHandled, double least,
               double most) {
  gint64 const start = g_get_monotonic_time();
  EXPECT_EQ(Turn(seconds, untilHandled), expected);
  double const took = static_cast<double>(g_get_monotonic_time() - start) / 1e6;
  EXPECT_GE(took, least);
  EXPECT_LE(took, most);
}

void OnNewThread(Work const& work) { std::thread(work).join(); }

}  // namespace

TEST(RunLoop, SaysHowItEnded) {
  OnNewThread([] {
    GMainContext* const context = CFRunLoopGetCurrent()->context;
    int handled = 0;
    Work count = [&] { ++handled; };
    ExpectRun(kCFRunLoopRunFinished, 30, true, 0, 5);
    After(60 * 1000, context, &count);
    ExpectRun(kCFRunLoopRunTimedOut, 0.05, true, 0.05, 5);
    ExpectRun(kCFRunLoopRunTimedOut, 0, true, 0, 5);
    After(30, context, &count);
    ExpectRun(kCFRunLoopRunHandledSource, 30, true, 0.03, 5);
    EXPECT_EQ(handled, 1);
    After(0, context, &count);
    After(30, context, &count);
    ExpectRun(kCFRunLoopRunTimedOut, 0.1, false, 0.1, 5);
    EXPECT_EQ(handled, 3);
    EXPECT_EQ(CFRunLoopRunInMode(CFSTR("other"), 30, true), kCFRunLoopRunFinished);
  });
}

// Red when the run loop leaves the thread changed, or serves the context of another.
TEST(RunLoop, IsTheContextOfItsThread) {
  bool served = false;
  Work serve = [&] { served = true; };
  After(0, nullptr, &serve);
  OnNewThread([&] {
    CFRunLoopRef const own = CFRunLoopGetCurrent();
    EXPECT_EQ(Turn(30, true), kCFRunLoopRunFinished) << "the main thread's source is not its own";
    bool nestedServed = false;
    Work inner = [&] { nestedServed = true; };
    Work outer = [&] {
      EXPECT_EQ(g_main_context_get_thread_default(), own->context);
      After(0, g_main_context_get_thread_default(), &inner);
      EXPECT_EQ(Turn(30, true), kCFRunLoopRunHandledSource);
    };
    After(0, own->context, &outer);
    EXPECT_EQ(Turn(30, true), kCFRunLoopRunHandledSource);
    EXPECT_TRUE(nestedServed);
    EXPECT_EQ(g_main_context_get_thread_default(), nullptr);

    GMainContext* const chosen = g_main_context_new();
    g_main_context_push_thread_default(chosen);
    EXPECT_EQ(CFRunLoopGetCurrent()->context, chosen);
    g_main_context_pop_thread_default(chosen);
    g_main_context_unref(chosen);
    EXPECT_EQ(g_main_context_acquire(nullptr), TRUE);
    EXPECT_EQ(CFRunLoopGetCurrent()->context, g_main_context_default()) << "this thread runs it";
    g_main_context_release(nullptr);
  });
  EXPECT_FALSE(served);
  EXPECT_EQ(CFRunLoopGetCurrent()->context, g_main_context_default());
  EXPECT_EQ(Turn(30, true), kCFRunLoopRunHandledSource);
  EXPECT_TRUE(served);
}
