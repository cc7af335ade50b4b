#pragma once

// Expectations in a child process, for what would spoil this one.

#include <gtest/gtest.h>

#include <string>

#include "tests/support/InChild.h"

// Runs `work`, with its expectations, in a child. Gives what it returns, which is nothing or the
// reason to skip the test; "failed" if an expectation did.
template <class Work>
std::string ChecksInChild(Work const& work) {
  return InChild([&work] {
    std::string const skipped = work();
    return testing::Test::HasFailure() ? "failed" : skipped;
  });
}
