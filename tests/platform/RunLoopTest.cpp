#include <CoreFoundation/CFRunLoop.h>
#include <CoreFoundation/CFString.h>
#include <CoreServices/FileOperations.h>
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

// Calls `work`, which must live as long, once on the context.
void Add(GMainContext* context, Work* work) {
  SourceHandle const source(g_timeout_source_new(0));
  g_source_set_callback(source.Get(), CallWork, work, nullptr);
  g_source_attach(source.Get(), context);
}

void ExpectRun(CFRunLoopRunResult expected) {
  gint64 const start = g_get_monotonic_time();
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 30, true), expected);
  EXPECT_LT(g_get_monotonic_time() - start, 5000000);
}

}  // namespace

// Red when the run loop leaves the thread changed, or serves the context of another.
TEST(RunLoop, IsTheContextOfItsThread) {
  bool isMainServed = false, isInnerServed = false;
  Work serveMain = [&] { isMainServed = true; }, serveInner = [&] { isInnerServed = true; };
  Add(nullptr, &serveMain);
  std::thread([&] {
    CFRunLoopRef const own = CFRunLoopGetCurrent();
    ExpectRun(kCFRunLoopRunFinished);  // the main thread's source is not its own
    Work outer = [&] {
      EXPECT_EQ(g_main_context_get_thread_default(), own->context);
      Add(g_main_context_get_thread_default(), &serveInner);
      ExpectRun(kCFRunLoopRunHandledSource);
    };
    Add(own->context, &outer);
    ExpectRun(kCFRunLoopRunHandledSource);
    EXPECT_TRUE(isInnerServed);
    EXPECT_EQ(g_main_context_get_thread_default(), nullptr);
  }).join();
  EXPECT_FALSE(isMainServed);
  EXPECT_EQ(CFRunLoopGetCurrent()->context, g_main_context_default());
  ExpectRun(kCFRunLoopRunHandledSource);
  EXPECT_TRUE(isMainServed);
}

// Red when another thread may take over the context that an operation will come back on, or its own
// thread turn to another one.
TEST(RunLoop, IsKeptByAnOperation) {
  auto const mayRunOnAnother = [](GMainContext* context) {
    bool may = false;
    std::thread([&] {
      may = g_main_context_acquire(context) != FALSE;
      if (may) g_main_context_release(context);
    }).join();
    return may;
  };
  auto const check = [&](bool takesUpDefault) {
    CFRunLoopRef const runLoop = CFRunLoopGetCurrent();
    FSFileOperationRef const operation = FSFileOperationCreate(kCFAllocatorDefault);
    FSFileOperationScheduleWithRunLoop(operation, runLoop, kCFRunLoopDefaultMode);
    EXPECT_FALSE(mayRunOnAnother(runLoop->context));
    if (takesUpDefault) g_main_context_acquire(nullptr);
    EXPECT_EQ(CFRunLoopGetCurrent(), runLoop);
    if (takesUpDefault) g_main_context_release(nullptr);
    FSFileOperationUnscheduleFromRunLoop(operation, runLoop, kCFRunLoopDefaultMode);
    CFRelease(operation);
    EXPECT_TRUE(mayRunOnAnother(runLoop->context));
  };
  check(false);
  std::thread(check, true).join();
}
