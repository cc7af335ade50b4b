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
#include <set>

#include "QuillmereLib/core/CFHolder.h"
#include "platform/linux/FileCopy.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;

constexpr char kOtherVolume[] = "/dev/shm";

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

// All names in the folder, in order.
std::string Listing(std::string const& folder) {
  std::set<std::string> names;
  for (auto const& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename());
  std::string text;
  for (std::string const& name : names) text += (text.empty() ? "" : " ") + name;
  return text;
}

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

struct stat FactsOf(std::string const& path) {
  struct stat facts = {};
  EXPECT_EQ(lstat(path.c_str(), &facts), 0) << path;
  return facts;
}

std::string AttributeOf(std::string const& path) {
  char value[100];
  ssize_t const size = getxattr(path.c_str(), "user.reel", value, sizeof value);
  return size < 0 ? "none" : std::string(value, static_cast<std::size_t>(size));
}

// Two folders on two volumes, and one more on the first.
struct Places {
  TemporaryFolder here, beside, away{kOtherVolume};
};

FileTask TaskOf(std::string const& from, std::string const& to, CopyMeans const& means = {}) {
  FileTask task;
  task.source = from + "/source";
  task.folder = to;
  task.name = "target";
  task.means = means;
  return task;
}

}  // namespace

TEST(FileCopy, EveryWayKeepsBytesHolesAndAttributes) {
  Places const places;
  std::string const source = places.here.Path() + "/source";
  MakeSparseFile(source);
  bool const hasAttribute = setxattr(source.c_str(), "user.reel", "seven", 5, 0) == 0;
  std::string const bytes = ReadFile(source);
  struct stat const from = FactsOf(source);
  long const descriptors = OpenDescriptors();
  for (CopyMeans const& means : kMeans) {
    for (std::string const& folder : {places.beside.Path(), places.away.Path()}) {
      FileTask task = TaskOf(places.here.Path(), folder, means);
      for (bool const overwrite : {false, true}) {
        task.overwrite = overwrite;
        ASSERT_EQ(CopyFile(task, std::make_unique<Watch>().get()), noErr);
        struct stat const made = FactsOf(folder + "/target");
        EXPECT_TRUE(ReadFile(folder + "/target") == bytes);
        EXPECT_EQ(made.st_mode, from.st_mode);
        EXPECT_EQ(made.st_mtim.tv_nsec, 123456789);
        EXPECT_LT(made.st_blocks * 512, 5 << 20) << "holes were filled";
        if (hasAttribute && folder == places.beside.Path()) {
          EXPECT_EQ(AttributeOf(folder + "/target"), "seven");
        }
        EXPECT_EQ(Listing(folder), "target");
      }
      task.overwrite = false;
      EXPECT_EQ(CopyFile(task, std::make_unique<Watch>().get()), dupFNErr);
      fs::remove(folder + "/target");
    }
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

// Each fault strikes a copy over an old file and one beside no file, and a move between volumes.
TEST(FileCopy, FaultsLeaveAllAsItWas) {
  Places const places;
  std::string const from = places.here.Path();
  std::string const to = places.away.Path();
  std::string const source = from + "/source";
  auto const shorten = [&] {
    fs::resize_file(source, 5);
    return true;
  };
  auto const stop = [] { return false; };
  auto const touch = [&] {
    std::ofstream(source, std::ios::app) << "more";
    return true;
  };
  struct {
    char const* fault;
    std::function<bool()> onPiece, atEnd;
    bool isMove;
    OSStatus expected;
  } const cases[] = {{"shortened", shorten, nullptr, false, eofErr},
                     {"shortened", shorten, nullptr, true, eofErr},
                     {"stopped", stop, nullptr, false, userCanceledErr},
                     {"stopped at the end", nullptr, stop, false, userCanceledErr},
                     {"stopped at the end", nullptr, stop, true, userCanceledErr},
                     {"grown after it was copied", nullptr, touch, true, fBsyErr}};
  for (auto const& [fault, onPiece, atEnd, isMove, expected] : cases) {
    for (CopyMeans const& means : kMeans) {
      // A replaced entry comes back only where two names can be swapped.
      bool const canUndo = means.renameFlags || expected != fBsyErr;
      for (bool const overwrite : {false, true}) {
        if (overwrite && !canUndo) continue;
        SCOPED_TRACE(std::string(fault) + (isMove ? ", move" : "") + (overwrite ? ", over" : ""));
        WriteFile(source, std::string(3 << 20, 'n'));
        if (overwrite) WriteFile(to + "/target", "old");
        Watch watch;
        watch.onPiece = onPiece;
        watch.atEnd = atEnd;
        FileTask task = TaskOf(from, to, means);
        task.isMove = isMove;
        task.overwrite = overwrite;
        EXPECT_EQ(CopyFile(task, &watch), expected);
        EXPECT_EQ(Listing(to), overwrite ? "target" : "");
        EXPECT_EQ(Listing(from), "source");
        if (overwrite) {
          EXPECT_EQ(ReadFile(to + "/target"), "old");
        }
        fs::remove(to + "/target");
      }
    }
  }
}

TEST(FileCopy, EntriesThatAppearSurvive) {
  Places const places;
  WriteFile(places.here.Path() + "/source", "new");
  std::string const target = places.beside.Path() + "/target";
  for (CopyMeans const& means : kMeans) {
    for (bool const isMove : {false, true}) {
      for (bool const isDirectory : {false, true}) {
        Watch watch;
        watch.atEnd = [&] {
          isDirectory ? static_cast<void>(fs::create_directory(target))
                      : WriteFile(target, "theirs");
          return true;
        };
        FileTask task = TaskOf(places.here.Path(), places.beside.Path(), means);
        task.isMove = isMove;
        task.overwrite = isDirectory;
        EXPECT_EQ(CopyFile(task, &watch), isDirectory ? opWrErr : dupFNErr);
        EXPECT_EQ(isDirectory ? "theirs" : ReadFile(target), "theirs");
        EXPECT_EQ(fs::is_directory(target), isDirectory);
        EXPECT_EQ(Listing(places.beside.Path()), "target");
        fs::remove(target);
        WriteFile(target, "theirs");
        EXPECT_EQ(RenameFile(TaskOf(places.here.Path(), places.beside.Path(), means)), dupFNErr);
        EXPECT_EQ(ReadFile(target), "theirs");
        fs::remove(target);
      }
    }
  }
  EXPECT_EQ(ReadFile(places.here.Path() + "/source"), "new");
}

TEST(FileCopy, WaitsUnderAHiddenNameOrNone) {
  Places const places;
  WriteFile(places.here.Path() + "/source", "new");
  std::string umlauts;
  for (int i = 0; i < 127; ++i) umlauts += "\xC3\xA4";
  for (std::string const& name : {std::string("target"), umlauts}) {
    for (CopyMeans const& means : kMeans) {
      FileTask task = TaskOf(places.here.Path(), places.beside.Path(), means);
      task.name = name;
      std::string meanwhile;
      Watch watch;
      watch.onPiece = [&] {
        meanwhile = Listing(places.beside.Path());
        return true;
      };
      EXPECT_EQ(CopyFile(task, &watch), noErr);
      EXPECT_EQ(meanwhile.empty(), means.unnamedFiles);
      if (!means.unnamedFiles) {
        EXPECT_EQ(fnmatch(".*.quillmere-??????.part", meanwhile.c_str(), 0), 0) << meanwhile;
        std::string const start = meanwhile.substr(1, meanwhile.size() - 23);
        EXPECT_EQ(name.compare(0, start.size(), start), 0);
        EXPECT_EQ(start.size() % (name == umlauts ? 2 : 6), 0u) << "a character was cut";
      }
      EXPECT_EQ(Listing(places.beside.Path()), name);
      fs::remove(places.beside.Path() + "/" + name);
    }
  }
}

TEST(FileCopy, MovesKeepTheSourceThatMayNotBeDeleted) {
  Places const places;
  WriteFile(places.here.Path() + "/source", "new");
  WriteFile(places.away.Path() + "/target", "old");
  chmod(places.away.Path().c_str(), 0777);
  chmod(places.here.Path().c_str(), 0755);
  EXPECT_EQ(InChild([&] {
              if (!BecomeNobody()) return std::string("skip");
              FileTask task = TaskOf(places.here.Path(), places.away.Path());
              task.isMove = task.overwrite = true;
              return std::to_string(CopyFile(task, std::make_unique<Watch>().get()));
            }),
            geteuid() == 0 ? std::to_string(permErr) : "skip");
  EXPECT_EQ(ReadFile(places.here.Path() + "/source"), "new");
  EXPECT_EQ(ReadFile(places.away.Path() + "/target"), "old");
  EXPECT_EQ(Listing(places.away.Path()), "target");
}

namespace {

using Operation = CFHolder<FSFileOperationRef>;

void Remember(FSFileOperationRef, char const*, FSFileOperationStage stage, OSStatus error,
              CFDictionaryRef, void* log) {
  *static_cast<std::string*>(log) += std::to_string(stage) + ":" + std::to_string(error) + " ";
}

OSStatus StartCopy(Operation const& operation, std::string const& from, std::string const& to,
                   CFStringRef name, std::string* log) {
  FSFileOperationClientContext context = {0, log, nullptr, nullptr, nullptr};
  return FSPathCopyObjectAsync(operation.Get(), (from + "/source").c_str(), to.c_str(), name, 0,
                               Remember, 0.1, &context);
}

}  // namespace

TEST(FileOperation, RefusesWhatItCannotStart) {
  Places const places;
  WriteFile(places.here.Path() + "/source", "new");
  std::string log;
  Operation const loose(FSFileOperationCreate(kCFAllocatorDefault));
  EXPECT_EQ(StartCopy(loose, places.here.Path(), places.beside.Path(), CFSTR("target"), &log),
            paramErr);
  Operation const operation(FSFileOperationCreate(kCFAllocatorDefault));
  CFRunLoopRef const loop = CFRunLoopGetCurrent();
  auto const schedule = [&](CFRunLoopMode mode) {
    return FSFileOperationScheduleWithRunLoop(operation.Get(), loop, mode);
  };
  EXPECT_EQ(schedule(CFSTR("other")), paramErr);
  EXPECT_EQ(schedule(kCFRunLoopDefaultMode), noErr);
  EXPECT_EQ(schedule(kCFRunLoopDefaultMode), paramErr);
  UniChar const unpaired[] = {0xD800};
  CFHolder<CFStringRef> const broken(
      CFStringCreateWithCharacters(kCFAllocatorDefault, unpaired, 1));
  std::string const tooLong(256, 'n');
  CFHolder<CFStringRef> const longest(
      CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<UInt8 const*>(tooLong.data()),
                              256, kCFStringEncodingUTF8, false));
  for (CFStringRef const name :
       {CFSTR(""), CFSTR(".."), CFSTR("a/b"), broken.Get(), longest.Get()}) {
    EXPECT_EQ(StartCopy(operation, places.here.Path(), places.beside.Path(), name, &log), bdNamErr);
  }
  EXPECT_EQ(StartCopy(operation, places.here.Path(), places.beside.Path(), nullptr, &log),
            paramErr);
  EXPECT_EQ(StartCopy(operation, places.here.Path(), places.beside.Path(), CFSTR("a:b"), &log),
            noErr);
  EXPECT_EQ(StartCopy(operation, places.here.Path(), places.beside.Path(), CFSTR("c"), &log),
            paramErr);
  while (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 5, true) != kCFRunLoopRunFinished) continue;
  EXPECT_EQ(log, "2:0 3:0 ");
  EXPECT_EQ(Listing(places.beside.Path()), "a:b");
}

// Red when the worker outlives its operation, or publishes what nobody approved.
TEST(FileOperation, ReleasedAtWorkLeavesNothing) {
  Places const places;
  WriteFile(places.here.Path() + "/source", std::string(5 << 20, 'n'));
  CFRunLoopGetCurrent();  // a loop keeps a descriptor from its first use
  long const descriptors = OpenDescriptors();
  std::string log;
  for (int round = 0; round < 20; ++round) {
    Operation const operation(FSFileOperationCreate(kCFAllocatorDefault));
    CFRunLoopRef const loop = CFRunLoopGetCurrent();
    FSFileOperationScheduleWithRunLoop(operation.Get(), loop, kCFRunLoopDefaultMode);
    EXPECT_EQ(StartCopy(operation, places.here.Path(), places.beside.Path(), CFSTR("target"), &log),
              noErr);
    if (round % 4 == 1) {
      FSFileOperationUnscheduleFromRunLoop(operation.Get(), loop, kCFRunLoopDefaultMode);
    }
    if (round % 4 == 2) FSFileOperationCancel(operation.Get());
    if (round % 4 == 3) usleep(static_cast<useconds_t>(round * 500));
  }
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 5, true), kCFRunLoopRunFinished);
  EXPECT_EQ(Listing(places.beside.Path()), "");
  EXPECT_EQ(log, "");
  EXPECT_EQ(OpenDescriptors(), descriptors);
}
