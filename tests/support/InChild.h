#pragma once

// Runs what would spoil this process (limits, another user, deliberate leaks) in a child of it.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <string>

// The text that `work` gives there, or how the child ended otherwise. Call it while no other thread
// runs.
template <class Work>
std::string InChild(Work const& work) {
  int ends[2];
  if (pipe(ends) != 0) return "no pipe";
  pid_t const child = fork();
  if (child < 0) return "no child";
  if (child == 0) {
    close(ends[0]);
    std::string text;
    try {
      text = work();
    } catch (std::exception const& error) {
      text = error.what();
    } catch (...) {
      text = "an exception";
    }
    ssize_t const written = write(ends[1], text.data(), text.size());
    _exit(written == static_cast<ssize_t>(text.size()) ? 0 : 1);
  }
  close(ends[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t got = 0; (got = read(ends[0], buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(got));
  }
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFSIGNALED(status)) return text + " signal " + std::to_string(WTERMSIG(status));
  return WEXITSTATUS(status) == 0 ? text : text + " exit " + std::to_string(WEXITSTATUS(status));
}

// The same, with the expectations of `work`, which gives nothing or the reason to skip the test;
// "failed" if an expectation did.
template <class Work>
std::string ChecksInChild(Work const& work) {
  return InChild([&work] {
    std::string const skipped = work();
    return testing::Test::HasFailure() ? "failed" : skipped;
  });
}

// Becomes the user who owns nothing; false where that is not allowed.
inline bool BecomeNobody() {
  return setresgid(65534, 65534, 65534) == 0 && setresuid(65534, 65534, 65534) == 0;
}
