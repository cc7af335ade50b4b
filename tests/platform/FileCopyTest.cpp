// The copying underneath, by each way that the system offers, and the operations around it.

#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/FileOperations.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "QuillmereLib/core/CFHolder.h"
#include "platform/linux/FileCopy.h"
#include "tests/support/Files.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/Places.h"

namespace {

namespace fs = std::filesystem;

//                          clone  range  splice unnamed renameFlags
CopyMeans const kMeans[] = {{true, true, true, true, true},     {false, true, false, true, true},
                            {false, false, true, false, false}, {false, false, false, false, true},
                            {true, true, true, false, true},    {true, true, true, true, false}};

// What happens after each piece, and when all are there; false stops the work.
using Event = std::function<bool()>;
struct Watch final : CopyObserver {
  Watch(Event const& after, Event const& end) : onPiece(after), atEnd(end) {}
  bool Continues(UInt64, UInt64 completed) override {
    EXPECT_GE(completed, before);
    before = completed;
    return !onPiece || onPiece();
  }
  bool Approves(UInt64) override { return !atEnd || atEnd(); }

  Event const &onPiece, &atEnd;
  UInt64 before = 0;
};

// Data, a hole, data, and a hole at the end.
void MakeSparseFile(std::string const& path) {
  WriteFile(path, std::string(1500000, 'a') + "b");
  fs::resize_file(path, 6 << 20);
  std::ofstream(path, std::ios::app) << std::string(2 << 20, 'c');
  fs::resize_file(path, (12 << 20) + 5);
  chmod(path.c_str(), 0640);
  timespec const times[] = {{1000000001, 5}, {1234567890, 123456789}};
  utimensat(AT_FDCWD, path.c_str(), times, 0);
}

// A copy or a move of the source to "target" in the folder.
FileTask Task(Places const& places, TemporaryFolder const& to, CopyMeans const& means, bool isMove,
              bool overwrite) {
  return {places.In("source"), to.Path(), "target", overwrite, isMove, means};
}

OSStatus Copy(FileTask const& task, Event const& onPiece = {}, Event const& atEnd = {}) {
  Watch watch(onPiece, atEnd);
  return CopyFile(task, &watch);
}

}  // namespace

TEST(FileCopy, EveryWayKeepsBytesHolesAndAttributes) {
  Places const places;
  MakeSparseFile(places.In("source"));
  bool const isMarked = setxattr(places.In("source").c_str(), "user.reel", "seven", 5, 0) == 0;
  std::string const bytes = ReadFile(places.In("source"));
  long const descriptors = OpenDescriptors();
  for (CopyMeans const& means : kMeans) {
    for (TemporaryFolder const* const folder : {&places.there, &places.away}) {
      std::string const target = folder->Path() + "/target";
      for (bool const overwrite : {false, true}) {
        ASSERT_EQ(Copy(Task(places, *folder, means, false, overwrite)), noErr);
        EXPECT_TRUE(ReadFile(target) == bytes);
        struct stat made;
        stat(target.c_str(), &made);
        EXPECT_EQ(made.st_mode, S_IFREG | 0640u);
        EXPECT_EQ(made.st_mtim.tv_nsec, 123456789);
        EXPECT_LT(made.st_blocks * 512, 5 << 20) << "holes were filled";
        char mark[6] = "";
        getxattr(target.c_str(), "user.reel", mark, 5);
        EXPECT_TRUE(!isMarked || folder != &places.there || std::string(mark) == "seven");
        EXPECT_EQ(Listing(folder->Path()), "target");
      }
      EXPECT_EQ(Copy(Task(places, *folder, means, false, false)), dupFNErr);
      fs::remove(target);
    }
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

// Each fault strikes with and without an old file at the destination.
TEST(FileCopy, FaultsLeaveAllAsItWas) {
  Places const places;
  std::string const source = places.In("source"), target = places.away.Path() + "/target";
  auto const shorten = [&] { return truncate(source.c_str(), 5) == 0; };
  auto const touch = [&] { return bool(std::ofstream(source, std::ios::app) << "more"); };
  auto const stop = [] { return false; };
  constexpr std::size_t kSize = 3 << 20;  // of several pieces
  struct {
    std::size_t size;
    Event onPiece, atEnd;
    OSStatus expected;
  } const cases[] = {{kSize, shorten, nullptr, eofErr},
                     {1000, shorten, nullptr, eofErr},  // when all was read
                     {kSize, stop, nullptr, userCanceledErr},
                     {kSize, nullptr, stop, userCanceledErr},
                     {kSize, nullptr, touch, fBsyErr}};  // of a move alone
  for (auto const& [size, onPiece, atEnd, expected] : cases) {
    for (CopyMeans const& means : kMeans) {
      for (unsigned way = 0; way < 4; ++way) {
        bool const isMove = way % 2 == 1, overwrite = way > 1;
        // A replaced entry comes back only where two names can be swapped.
        if (expected == fBsyErr && (!isMove || (overwrite && !means.renameFlags))) continue;
        SCOPED_TRACE(std::to_string(expected) + " way " + std::to_string(way));
        WriteFile(source, std::string(size, 'n'));
        if (overwrite) WriteFile(target, "old");
        FileTask const task = Task(places, places.away, means, isMove, overwrite);
        EXPECT_EQ(Copy(task, onPiece, atEnd), expected);
        EXPECT_EQ(Listing(task.folder) + ReadFile(target), overwrite ? "targetold" : "");
        EXPECT_EQ(Listing(places.here.Path()), "source");
        fs::remove(target);
      }
    }
  }
}

TEST(FileCopy, EntriesThatAppearSurvive) {
  Places const places;
  WriteFile(places.In("source"), "new");
  std::string const target = places.there.Path() + "/target";
  auto const appear = [&] { return bool(std::ofstream(target) << "theirs"); };
  auto const appearAsFolder = [&] { return fs::create_directory(target); };
  for (CopyMeans const& means : kMeans) {
    for (bool const isMove : {false, true}) {
      FileTask const task = Task(places, places.there, means, isMove, false);
      EXPECT_EQ(Copy(task, nullptr, appear), dupFNErr);
      EXPECT_EQ(RenameFile(task), dupFNErr);
      EXPECT_EQ(Listing(task.folder) + ReadFile(target), "targettheirs");
      fs::remove(target);
      FileTask const over = Task(places, places.there, means, isMove, true);
      EXPECT_EQ(Copy(over, nullptr, appearAsFolder), opWrErr);
      EXPECT_EQ(Listing(task.folder), "target");
      fs::remove(target);
    }
  }
  EXPECT_EQ(ReadFile(places.In("source")), "new");

  // Meanwhile the copy waits under a hidden name or none.
  std::string umlauts = "n";  // a cut in the middle of a character is one at an even place
  for (int i = 0; i < 127; ++i) umlauts += "\u00E4";
  for (std::string const& name : {std::string("target"), umlauts}) {
    for (CopyMeans const& means : kMeans) {
      FileTask task = Task(places, places.there, means, false, false);
      task.name = name;
      std::string waiting;
      EXPECT_EQ(Copy(task, [&] { return (waiting = Listing(task.folder)) != name; }), noErr);
      EXPECT_EQ(Listing(task.folder), name);
      fs::remove(task.folder + "/" + name);
      EXPECT_EQ(waiting.empty(), means.unnamedFiles);
      if (waiting.empty()) continue;
      EXPECT_EQ(fnmatch(".*.quillmere-??????.part", waiting.c_str(), 0), 0) << waiting;
      std::string const start = waiting.substr(1, waiting.size() - 23);
      EXPECT_EQ(name.compare(0, start.size(), start), 0);
      EXPECT_TRUE(start == name || start.size() % 2 == 1) << "a character was cut";
    }
  }
}

// Red when the worker outlives its operation, or publishes what nobody approved.
TEST(FileOperation, ReleasedAtWorkLeavesNothing) {
  Places const places;
  WriteFile(places.In("source"), std::string(5 << 20, 'n'));
  CFRunLoopRef const loop = CFRunLoopGetCurrent();  // keeps a descriptor from its first use
  long const descriptors = OpenDescriptors();
  FSFileOperationClientContext context = {};
  auto const tell = [](FSFileOperationRef, char const*, FSFileOperationStage, OSStatus,
                       CFDictionaryRef, void*) { ADD_FAILURE() << "told"; };
  for (useconds_t round = 0; round < 20; ++round) {
    CFHolder<FSFileOperationRef> const operation(FSFileOperationCreate(kCFAllocatorDefault));
    FSFileOperationScheduleWithRunLoop(operation.Get(), loop, kCFRunLoopDefaultMode);
    EXPECT_EQ(
        FSPathCopyObjectAsync(operation.Get(), places.In("source").c_str(),
                              places.there.Path().c_str(), CFSTR("target"), 0, tell, 0.1, &context),
        noErr);
    if (round % 4 == 1) {
      FSFileOperationUnscheduleFromRunLoop(operation.Get(), loop, kCFRunLoopDefaultMode);
    }
    if (round % 4 == 2) FSFileOperationCancel(operation.Get());
    if (round % 4 == 3) usleep(round * 500);
  }
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 5, true), kCFRunLoopRunFinished);
  EXPECT_EQ(Listing(places.there.Path()), "");
  EXPECT_EQ(OpenDescriptors(), descriptors);
}
