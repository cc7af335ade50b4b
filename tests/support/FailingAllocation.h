#pragma once

// Lets `new` run out of memory at a chosen moment.

#include <new>

// While this lives, the nth call of operator new on this thread fails, and no other.
class FailingAllocation {
 public:
  explicit FailingAllocation(int nth);
  FailingAllocation(FailingAllocation const&) = delete;
  FailingAllocation& operator=(FailingAllocation const&) = delete;
  ~FailingAllocation();

  // Whether that call came.
  bool Happened() const;
};

// Runs `work` once for each allocation that it makes, with that one failing, and `check` after each
// run. Gives the number of runs that failed somewhere.
template <class Work, class Check>
int FailEachAllocation(Work const& work, Check const& check) {
  for (int nth = 1;; ++nth) {
    bool happened = false;
    {
      FailingAllocation const failing(nth);
      try {
        work();
      } catch (std::bad_alloc const&) {
      }
      happened = failing.Happened();
    }
    check();
    if (!happened) return nth - 1;
  }
}
