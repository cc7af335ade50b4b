#include <CoreFoundation/CoreFoundation.h>
#include <Workspace.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <thread>

#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/TemporaryFolder.h"

namespace {

struct Answer {
  int calls = 0;
  CFIndex error = -1;
  std::thread::id thread;
};

void Note(CFIndex error, void* context) {
  auto* const answer = static_cast<Answer*>(context);
  *answer = {answer->calls + 1, error, std::this_thread::get_id()};
}

// The error, which must come once, on this thread, and leave nothing on the run loop.
std::string Recycle(std::string const& path) {
  Answer answer;
  WorkspaceRecyclePath(std::string(path).c_str(), Note, &answer);
  while (answer.calls == 0) {
    SInt32 const result = CFRunLoopRunInMode(kCFRunLoopDefaultMode, 10, true);
    if (answer.calls == 0) return "came back with " + std::to_string(result);
  }
  bool const isIdle =
      CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, true) == kCFRunLoopRunFinished;
  bool const isGood = answer.calls == 1 && answer.thread == std::this_thread::get_id() && isIdle;
  return isGood ? std::to_string(answer.error) + " " : "called wrongly ";
}

}  // namespace

TEST(Workspace, MovesToTheUsersTrash) {
  namespace fs = std::filesystem;
  TemporaryFolder const folder;
  std::string const home = folder.Path() + "/", trash = home + "data/Trash/files/";
  for (char const* const name : {"a/deep", "elsewhere/inner"}) fs::create_directories(home + name);
  for (char const* const name : {"a/deep/file", "x:y", "elsewhere/same", "same"}) {
    WriteFile(home + name, name);
  }
  fs::create_directory_symlink("elsewhere/inner", home + "link");
  auto const work = [&] {
    setenv("XDG_DATA_HOME", (home + "data").c_str(), 1);
    std::string errors = Recycle(home + "a");
    std::thread([&] { errors += Recycle(home + "x:y"); }).join();
    // A lexical reading of the first path would take another "same".
    for (char const* const name : {"link/../same", "link/", "a"}) errors += Recycle(home + name);
    // Memory has no trash.
    TemporaryFolder const inMemory("/dev/shm");
    return errors + Recycle(inMemory.Path()) + (fs::exists(inMemory.Path()) ? "stays" : "gone");
  };
  EXPECT_EQ(InChild(work), "0 0 0 0 4 3328 stays");
  EXPECT_EQ(ReadFile(trash + "a/deep/file") + ReadFile(trash + "x:y"), "a/deep/filex:y");
  EXPECT_EQ(ReadFile(trash + "same") + ReadFile(home + "same"), "elsewhere/samesame");
  EXPECT_TRUE(fs::is_symlink(trash + "link") && fs::is_directory(home + "elsewhere/inner"));
  EXPECT_TRUE(fs::exists(home + "data/Trash/info/a.trashinfo") && !fs::exists(home + "a"));
}
