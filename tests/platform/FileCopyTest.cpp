// The copying underneath, by each way that the system offers, and the operations around it.

#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/FileOperations.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <filesystem>
#include <functional>

#include "QuillmereLib/core/CFHolder.h"
#include "platform/linux/FileCopy.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/Places.h"
#include "tests/support/Strings.h"

namespace {

namespace fs = std::filesystem;

//                          clone  range  splice unnamed renameFlags
CopyMeans const kMeans[] = {{true, true, true, true, true},     {false, true, false, true, true},
                            {false, false, true, false, false}, {false, false, false, false, true},
                            {true, true, true, false, true},    {true, true, true, true, false}};

class Watch final : public CopyObserver {
 public:
  bool Continues(UInt64, UInt64 completed) override {
    EXPECT_GE(completed, m_completed);
    m_completed = completed;
    return !onPiece || onPiece();
  }
  bool Approves(UInt64) override { return !atEnd || atEnd(); }

  std::function<bool()> onPiece;
  std::function<bool()> atEnd;

 private:
  UInt64 m_completed = 0;
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

FileTask TaskOf(Places const& places, std::string const& to, CopyMeans const& means, bool isMove,
                bool overwrite) {
  return {places.In("source"), to, "target", overwrite, isMove, means};
}

OSStatus Copy(FileTask const& task, std::function<bool()> onPiece = {},
              std::function<bool()> atEnd = {}) {
  Watch watch;
  watch.onPiece = std::move(onPiece);
  watch.atEnd = std::move(atEnd);
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
    for (std::string const& folder : {places.there.Path(), places.away.Path()}) {
      for (bool const overwrite : {false, true}) {
        ASSERT_EQ(Copy(TaskOf(places, folder, means, false, overwrite)), noErr);
        std::string const target = folder + "/target";
        EXPECT_TRUE(ReadFile(target) == bytes);
        struct stat made;
        stat(target.c_str(), &made);
        EXPECT_EQ(made.st_mode, S_IFREG | 0640u);
        EXPECT_EQ(made.st_mtim.tv_nsec, 123456789);
        EXPECT_LT(made.st_blocks * 512, 5 << 20) << "holes were filled";
        char mark[6] = "";
        bool const hasMark = getxattr(target.c_str(), "user.reel", mark, 5) == 5;
        EXPECT_TRUE(!isMarked || folder != places.there.Path() || (hasMark && mark[4] == 'n'));
        EXPECT_EQ(Listing(folder), "target");
      }
      EXPECT_EQ(Copy(TaskOf(places, folder, means, false, false)), dupFNErr);
      fs::remove(folder + "/target");
    }
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

// Each fault strikes with and without an old file at the destination.
TEST(FileCopy, FaultsLeaveAllAsItWas) {
  Places const places;
  std::string const source = places.In("source"), target = places.away.Path() + "/target";
  auto const shorten = [&] {
    fs::resize_file(source, 5);
    return true;
  };
  auto const stop = [] { return false; };
  constexpr std::size_t kSize = 3 << 20;  // of several pieces
  auto const touch = [&] {
    std::ofstream(source, std::ios::app) << "more";
    return true;
  };
  struct {
    char const* fault;
    std::size_t size;
    std::function<bool()> onPiece, atEnd;
    bool isMove;
    OSStatus expected;
  } const cases[] = {{"shortened", kSize, shorten, nullptr, false, eofErr},
                     {"shortened", kSize, shorten, nullptr, true, eofErr},
                     {"shortened when all was read", 1000, shorten, nullptr, false, eofErr},
                     {"stopped", kSize, stop, nullptr, false, userCanceledErr},
                     {"stopped at the end", kSize, nullptr, stop, false, userCanceledErr},
                     {"stopped at the end", kSize, nullptr, stop, true, userCanceledErr},
                     {"grown after it was copied", kSize, nullptr, touch, true, fBsyErr}};
  for (auto const& [fault, size, onPiece, atEnd, isMove, expected] : cases) {
    for (CopyMeans const& means : kMeans) {
      for (bool const overwrite : {false, true}) {
        // A replaced entry comes back only where two names can be swapped.
        if (overwrite && expected == fBsyErr && !means.renameFlags) continue;
        SCOPED_TRACE(std::string(fault) + (isMove ? ", move" : "") + (overwrite ? ", over" : ""));
        WriteFile(source, std::string(size, 'n'));
        if (overwrite) WriteFile(target, "old");
        EXPECT_EQ(
            Copy(TaskOf(places, places.away.Path(), means, isMove, overwrite), onPiece, atEnd),
            expected);
        EXPECT_EQ(Listing(places.away.Path()) + ReadFile(target), overwrite ? "targetold" : "");
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
  for (CopyMeans const& means : kMeans) {
    for (bool const isMove : {false, true}) {
      FileTask const task = TaskOf(places, places.there.Path(), means, isMove, false);
      auto const appear = [&] {
        WriteFile(target, "theirs");
        return true;
      };
      EXPECT_EQ(Copy(task, nullptr, appear), dupFNErr);
      EXPECT_EQ(RenameFile(task), dupFNErr);
      EXPECT_EQ(Listing(places.there.Path()) + ReadFile(target), "targettheirs");
      fs::remove(target);
      auto const appearAsFolder = [&] { return fs::create_directory(target); };
      EXPECT_EQ(
          Copy(TaskOf(places, places.there.Path(), means, isMove, true), nullptr, appearAsFolder),
          opWrErr);
      EXPECT_EQ(Listing(places.there.Path()), "target");
      fs::remove(target);
    }
  }
  EXPECT_EQ(ReadFile(places.In("source")), "new");
}

TEST(FileCopy, WaitsUnderAHiddenNameOrNone) {
  Places const places;
  WriteFile(places.In("source"), "new");
  std::string umlauts = "n";  // a cut in the middle of a character is one at an even place
  for (int i = 0; i < 127; ++i) umlauts += "\xC3\xA4";
  for (std::string const& name : {std::string("target"), umlauts}) {
    for (CopyMeans const& means : kMeans) {
      FileTask task = TaskOf(places, places.there.Path(), means, false, false);
      task.name = name;
      std::string meanwhile;
      EXPECT_EQ(Copy(task, [&] { return !(meanwhile = Listing(task.folder)).empty() || true; }),
                noErr);
      EXPECT_EQ(Listing(task.folder), name);
      fs::remove(task.folder + "/" + name);
      EXPECT_EQ(meanwhile.empty(), means.unnamedFiles);
      if (meanwhile.empty()) continue;
      EXPECT_EQ(fnmatch(".*.quillmere-??????.part", meanwhile.c_str(), 0), 0) << meanwhile;
      std::string const start = meanwhile.substr(1, meanwhile.size() - 23);
      EXPECT_EQ(name.compare(0, start.size(), start), 0);
      EXPECT_TRUE(start == name || start.size() % 2 == 1) << "a character was cut";
    }
  }
}

TEST(FileCopy, MovesKeepTheSourceThatMayNotBeDeleted) {
  Places const places;
  WriteFile(places.In("source"), "new");
  WriteFile(places.away.Path() + "/target", "old");
  chmod(places.away.Path().c_str(), 0777);
  chmod(places.here.Path().c_str(), 0755);
  EXPECT_EQ(InChild([&] {
              if (!BecomeNobody()) return std::string("skip");
              return std::to_string(Copy(TaskOf(places, places.away.Path(), {}, true, true)));
            }),
            geteuid() == 0 ? std::to_string(permErr) : "skip");
  EXPECT_EQ(ReadFile(places.In("source")) + ReadFile(places.away.Path() + "/target"), "newold");
  EXPECT_EQ(Listing(places.away.Path()), "target");
}

namespace {

using Operation = CFHolder<FSFileOperationRef>;

void Remember(FSFileOperationRef, char const*, FSFileOperationStage stage, OSStatus error,
              CFDictionaryRef, void* log) {
  *static_cast<std::string*>(log) += std::to_string(stage) + ":" + std::to_string(error) + " ";
}

OSStatus Start(Operation const& operation, Places const& places, CFStringRef name,
               std::string* log) {
  FSFileOperationClientContext context = {0, log, nullptr, nullptr, nullptr};
  return FSPathCopyObjectAsync(operation.Get(), places.In("source").c_str(),
                               places.there.Path().c_str(), name, 0, Remember, 0.1, &context);
}

OSStatus Schedule(Operation const& operation, CFRunLoopMode mode = kCFRunLoopDefaultMode) {
  return FSFileOperationScheduleWithRunLoop(operation.Get(), CFRunLoopGetCurrent(), mode);
}

}  // namespace

TEST(FileOperation, RefusesWhatItCannotStart) {
  Places const places;
  WriteFile(places.In("source"), "new");
  std::string log;
  Operation const operation(FSFileOperationCreate(kCFAllocatorDefault));
  EXPECT_EQ(Start(operation, places, CFSTR("unscheduled"), &log), paramErr);
  EXPECT_EQ(Schedule(operation, CFSTR("other")), paramErr);
  EXPECT_EQ(Schedule(operation), noErr);
  EXPECT_EQ(Schedule(operation), paramErr);
  CFHolder<CFStringRef> const broken(CreateString(u"\xD800"));
  CFHolder<CFStringRef> const longest(CreateString(std::u16string(256, u'n')));
  for (CFStringRef const name :
       {CFSTR(""), CFSTR(".."), CFSTR("a/b"), broken.Get(), longest.Get()}) {
    EXPECT_EQ(Start(operation, places, name, &log), bdNamErr);
  }
  EXPECT_EQ(Start(operation, places, nullptr, &log), paramErr);
  EXPECT_EQ(Start(operation, places, CFSTR("a:b"), &log), noErr);
  EXPECT_EQ(Start(operation, places, CFSTR("c"), &log), paramErr);
  while (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 5, true) != kCFRunLoopRunFinished) continue;
  EXPECT_EQ(log, "2:0 3:0 ");
  EXPECT_EQ(Listing(places.there.Path()), "a:b");
}

// Red when the worker outlives its operation, or publishes what nobody approved.
TEST(FileOperation, ReleasedAtWorkLeavesNothing) {
  Places const places;
  WriteFile(places.In("source"), std::string(5 << 20, 'n'));
  CFRunLoopGetCurrent();  // a loop keeps a descriptor from its first use
  long const descriptors = OpenDescriptors();
  std::string log;
  for (useconds_t round = 0; round < 20; ++round) {
    Operation const operation(FSFileOperationCreate(kCFAllocatorDefault));
    Schedule(operation);
    EXPECT_EQ(Start(operation, places, CFSTR("target"), &log), noErr);
    if (round % 4 == 1) {
      FSFileOperationUnscheduleFromRunLoop(operation.Get(), CFRunLoopGetCurrent(),
                                           kCFRunLoopDefaultMode);
    }
    if (round % 4 == 2) FSFileOperationCancel(operation.Get());
    if (round % 4 == 3) usleep(round * 500);
  }
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 5, true), kCFRunLoopRunFinished);
  EXPECT_EQ(Listing(places.there.Path()) + log, "");
  EXPECT_EQ(OpenDescriptors(), descriptors);
}
