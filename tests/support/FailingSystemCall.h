#pragma once

// Makes system calls fail, in whatever library they are made.

#include <functional>

struct CallFault {
  int error = 0;           // 0: none fails, and all are counted
  int nth = 1;             // from 1, of the calls that can fail with this error
  bool isLasting = false;  // so do all after it
};

struct CallTrace {
  bool isPossible = false;  // whether this system lets calls be watched; else nothing was run
  int calls = 0;            // that can fail with the error
  int failed = 0;           // that did
  char const* lastFailed = "";
  bool failedToDelete = false;  // one of them was to delete a file
};

// Runs `work`, which must not throw, on a thread of its own, and waits for it and for all threads
// that it starts. Which call can fail with which error is as the manual pages have it. A close that
// fails has closed.
CallTrace RunWithFault(CallFault const& fault, std::function<void()> const& work);

// From now on the call fails with `error`, as on a system that lacks it; call it in a child, since
// the process stays so. False where the system lets no call be denied.
bool DenyCall(unsigned call, unsigned error);
