#pragma once

// Run loops: where a thread waits for what has been scheduled on it, and is called back.

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDate.h>

typedef struct __CFRunLoop* CFRunLoopRef;
typedef CFStringRef CFRunLoopMode;

enum CFRunLoopRunResult : SInt32 {
  kCFRunLoopRunFinished = 1,      // nothing is scheduled there that could ever come
  kCFRunLoopRunStopped = 2,       // never given here: nothing stops a run loop from outside
  kCFRunLoopRunTimedOut = 3,      // the time is over
  kCFRunLoopRunHandledSource = 4  // it was asked to return after a source, and one was handled
};

// The one mode that there is.
CF_INSIDE CFRunLoopMode const kCFRunLoopDefaultMode;

// The run loop of the calling thread, lent until the thread asks again; retained, it may outlive
// the thread. It stands for the thread's own event context of the system's main loop, so that
// running it serves the application's own sources too: the one that the thread has made its
// default, else the process-wide one if this is the main thread or the one that runs it, else one
// that is made for this thread. While a file operation or recycling that was begun on it is under
// way it stays this thread's, and others that want to run it wait. Null when memory runs out.
CF_INSIDE CFRunLoopRef CFRunLoopGetCurrent(void);

// Runs the run loop of the calling thread for at most `seconds`, 0 for what is ready now, and says
// how it ended. With `returnAfterSourceHandled` it returns as soon as a source has been handled;
// sources of the application count, and those that are ready at the same moment with the same
// priority are handled together. It returns at once, with kCFRunLoopRunFinished, where nothing is
// scheduled, and for another mode. It may be called again from what it calls.
CF_INSIDE CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                                Boolean returnAfterSourceHandled);
