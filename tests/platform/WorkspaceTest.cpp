#include <CoreFoundation/CoreFoundation.h>
#include <Workspace.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/vfs.h>

#include <filesystem>
#include <thread>

#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;

constexpr long kMemoryFileSystem = 0x01021994;

struct Answer {
  int calls = 0;
  CFIndex error = -1;
  std::thread::id thread;
};

void Note(CFIndex error, void* context) {
  auto* const answer = static_cast<Answer*>(context);
  ++answer->calls;
  answer->error = error;
  answer->thread = std::this_thread::get_id();
}

// The error, once it has come, once, on this thread, with nothing left on the run loop.
std::string Recycle(std::string const& path) {
  Answer answer;
  {
    std::string const shortLived = path;
    WorkspaceRecyclePath(shortLived.c_str(), Note, &answer);
  }
  while (answer.calls == 0) {
    SInt32 const result = CFRunLoopRunInMode(kCFRunLoopDefaultMode, 10, true);
    if (answer.calls == 0) return "came back with " + std::to_string(result);
  }
  SInt32 const idle = CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, true);
  bool const good = answer.calls == 1 && answer.thread == std::this_thread::get_id() &&
                    idle == kCFRunLoopRunFinished;
  return good ? std::to_string(answer.error) : "wrongly called";
}

}  // namespace

TEST(Workspace, MovesToTheUsersTrash) {
  TemporaryFolder const folder;
  std::string const home = folder.Path() + "/";
  for (char const* const name : {"a/deep/dir", "elsewhere/inner", "target"}) {
    fs::create_directories(home + name);
  }
  WriteFile(home + "a/deep/file", "kept");
  WriteFile(home + "x:y", "colon");
  WriteFile(home + "elsewhere/same", "right");
  WriteFile(home + "same", "wrong");
  fs::create_directory_symlink("target", home + "link");
  fs::create_directory_symlink("elsewhere/inner", home + "away");
  auto const work = [&] {
    setenv("XDG_DATA_HOME", (home + "data").c_str(), 1);
    std::string errors = Recycle(home + "a");
    std::thread([&] { errors += " " + Recycle(home + "x:y"); }).join();
    // A lexical reading of the path would take the other "same".
    for (char const* const name : {"link/", "away/../same", "a"})
      errors += " " + Recycle(home + name);
    return errors + " " + Recycle("");
  };
  EXPECT_EQ(InChild(work), "0 0 0 0 4 4");
  std::string const trash = home + "data/Trash/files/";
  EXPECT_EQ(ReadFile(trash + "a/deep/file"), "kept");
  EXPECT_EQ(ReadFile(trash + "x:y"), "colon");
  EXPECT_EQ(ReadFile(trash + "same"), "right");
  EXPECT_EQ(ReadFile(home + "same"), "wrong");
  EXPECT_TRUE(fs::is_symlink(trash + "link") && fs::is_directory(home + "target"));
  EXPECT_TRUE(fs::exists(home + "data/Trash/info/a.trashinfo"));
  EXPECT_FALSE(fs::exists(home + "a"));
}

TEST(Workspace, LeavesInPlaceWhatHasNoTrash) {
  struct statfs facts = {};
  if (statfs("/dev/shm", &facts) != 0 || facts.f_type != kMemoryFileSystem) {
    GTEST_SKIP() << "/dev/shm is no file system in memory";
  }
  TemporaryFolder const folder("/dev/shm");
  fs::create_directory(folder.Path() + "/dir");
  EXPECT_EQ(InChild([&] { return Recycle(folder.Path() + "/dir"); }), "3328");
  EXPECT_TRUE(fs::exists(folder.Path() + "/dir"));
}
