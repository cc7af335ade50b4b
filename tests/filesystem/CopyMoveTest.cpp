// Copies and moves as callers see them, and the faults that must leave all as it was.

#include <CoreFoundation/CFRunLoop.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <sstream>
#include <thread>
#include <vector>

#include "QuillmereLib/filesystem/CUFile.h"
#include "QuillmereLib/filesystem/CUFileInfo.h"
#include "platform/linux/CFRunLoopObject.h"
#include "platform/linux/Handles.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/Mounts.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/Places.h"
#include "tests/support/Strings.h"
#include "tests/support/ThrownCode.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr bool kCopy = true;
constexpr bool kMove = false;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// What the callback was told. It stops the work at the first call, or at the one that says that all
// is done.
struct Calls {
  enum Stop { Never, AtFirst, AtLast };
  struct Call {
    unsigned long long total, completed;
    double seconds;
  };

  explicit Calls(Stop at = Never) : stop(at), info{Tell, this, nullptr} {}

  static bool Tell(unsigned long long total, unsigned long long completed, void* self) {
    auto& calls = *static_cast<Calls*>(self);
    EXPECT_EQ(std::this_thread::get_id(), calls.thread);
    calls.all.push_back({total, completed, SecondsSince(calls.start)});
    return calls.stop == Never || (calls.stop == AtLast && completed < total);
  }

  Stop stop;
  _CopyProgress_Info info;
  std::vector<Call> all;
  std::thread::id thread = std::this_thread::get_id();
  Clock::time_point start = Clock::now();
};

// The result in hexadecimal digits, or the error code thrown.
std::string Transfer(bool isCopy, std::string const& from, std::string const& to, bool overwrite,
                     Calls* calls = nullptr) {
  Calls unheard;
  _CopyProgress_Info& info = (calls == nullptr ? unheard : *calls).info;
  CUResult result = CUResult_Success;
  auto const transfer = isCopy ? CUFile::CopyWithProgress : CUFile::MoveWithProgress;
  unsigned int const code =
      ThrownCode([&] { result = transfer(Make(from), Make(to), &info, overwrite); });
  std::ostringstream text;
  text << std::hex << result;
  return code == 0 ? text.str() : "error " + std::to_string(code);
}

constexpr std::size_t kMegabyte = 1 << 20;

void WriteLargeFile(std::string const& path, std::size_t megabytes) {
  std::ofstream file(path, std::ios::binary);
  for (std::size_t i = 0; i < megabytes; ++i) file << std::string(kMegabyte, 'l');
}

}  // namespace

TEST(CopyMove, TellsEachRefusal) {
  Places const places;
  WriteFile(places.In("file"), "new");
  WriteFile(places.In("old"), "old");
  fs::create_directory(places.In("dir"));
  fs::create_symlink("nowhere", places.In("dangling"));
  mkfifo(places.In("fifo").c_str(), 0600);
  std::string const file = places.In("file"), fresh = places.In("new");
  // What is told, where "failed" is the failure of the operation; from where to where.
  std::pair<std::string, std::vector<std::pair<std::string, std::string>>> const cases[] = {
      {"error 9",
       {{places.In("dir"), fresh},
        {places.In("missing"), fresh},
        {places.In("dangling"), fresh},
        {places.In("fifo"), fresh}}},
      {"error 1", {{"", fresh}, {file, ""}}},
      {"10001", {{file, "bare name"}, {file, places.In("new/")}}},
      {"failed",
       {{file, places.In("dir")},
        {file, places.In("missing/new")},
        {file, places.In("old/new")},
        {file, places.In(std::string(256, 'n'))}}}};
  for (bool const isCopy : {kCopy, kMove}) {
    std::string const failure = isCopy ? "10003" : "10004";
    for (auto const& [expected, pairs] : cases) {
      for (auto const& [from, to] : pairs) {
        EXPECT_EQ(Transfer(isCopy, from, to, true), expected == "failed" ? failure : expected)
            << from << " " << to;
      }
    }
    for (char const* const taken : {"dir", "dangling", "fifo"}) {
      EXPECT_EQ(Transfer(isCopy, file, places.In(taken), false), failure) << taken;
    }
    EXPECT_EQ(Transfer(isCopy, file, places.In("old"), false), "error 4");
  }
  for (char const* const endless : {"/dev/zero", "/proc/self/status"}) {
    EXPECT_EQ(Transfer(kCopy, endless, fresh, true), "10003") << endless;
  }
  Calls calls;
  EXPECT_EQ(ThrownCode([&] { CUFile::MoveWithProgress(Make(file), Make(fresh), nullptr, true); }),
            2u);
  EXPECT_EQ(ThrownCode([&] { CUFile::CopyWithProgress(Make(file), nullptr, &calls.info, true); }),
            2u);
  EXPECT_EQ(Listing(places.here.Path()), "dangling dir fifo file old");
  EXPECT_EQ(ReadFile(places.In("file")) + ReadFile(places.In("old")), "newold");
}

// By the same path, a hard link, and symbolic links on either side.
TEST(CopyMove, OneFileByTwoNamesStays) {
  Places const places;
  WriteFile(places.In("file"), "whole");
  fs::create_hard_link(places.In("file"), places.In("hard"));
  fs::create_symlink("file", places.In("link"));
  fs::create_symlink("link", places.In("chain"));
  fs::create_symlink(places.here.Path(), places.there.Path() + "/away");
  std::string const names[] = {places.In("file"), places.In("hard"), places.In("link"),
                               places.In("chain"), places.there.Path() + "/away/file"};
  for (std::string const& from : names) {
    for (std::string const& to : names) {
      EXPECT_EQ(Transfer(kCopy, from, to, true), "10003") << from << " " << to;
      EXPECT_EQ(Transfer(kMove, from, to, true), "10004") << from << " " << to;
    }
  }
  EXPECT_EQ(Listing(places.here.Path()), "chain file hard link");
  EXPECT_EQ(ReadFile(places.In("chain")) + ReadFile(places.In("hard")), "wholewhole");
}

TEST(CopyMove, ReportsOnItsWayAndServesTheRunLoop) {
  Places const places;
  std::string const away = places.away.Path() + "/away";
  CFRunLoopGetCurrent();  // a loop keeps a descriptor from its first use
  long const descriptors = OpenDescriptors();
  WriteLargeFile(places.In("large"), 400);
  WriteLargeFile(away, 20);
  int served = 0;
  auto const serve = [](gpointer count) -> gboolean { return ++*static_cast<int*>(count) < 3; };
  SourceHandle const source(g_idle_source_new());
  g_source_set_priority(source.Get(), G_PRIORITY_HIGH);
  g_source_set_callback(source.Get(), serve, &served, nullptr);
  g_source_attach(source.Get(), CFRunLoopGetCurrent()->context);
  Calls copy, move;
  EXPECT_EQ(Transfer(kCopy, places.In("large"), places.In("copy"), false, &copy), "0");
  EXPECT_EQ(served, 3);
  EXPECT_EQ(Transfer(kMove, away, places.In("moved"), false, &move), "0");
  for (Calls const* calls : {&copy, &move}) {
    unsigned long long const size = (calls == &copy ? 400 : 20) * kMegabyte;
    ASSERT_FALSE(calls->all.empty());
    Calls::Call before = {size, 0, 0};
    for (Calls::Call const& call : calls->all) {
      bool const isLast = &call == &calls->all.back();
      EXPECT_EQ(call.total, size);
      EXPECT_GE(call.completed, before.completed);
      EXPECT_EQ(call.completed == size, isLast);
      EXPECT_TRUE(isLast || call.seconds - before.seconds > 0.099);
      before = call;
    }
  }
  EXPECT_TRUE(ReadFile(places.In("copy")) == ReadFile(places.In("large")));
  EXPECT_TRUE(ReadFile(places.In("moved")) == std::string(20 * kMegabyte, 'l'));
  EXPECT_EQ(Listing(places.away.Path()), "");
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 5, true), kCFRunLoopRunFinished);
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

// On a run loop that has something of the application's to wait for.
TEST(CopyMove, ACancelLeavesTheOldAndIsQuick) {
  Places const places;
  WriteLargeFile(places.In("large"), 400);
  WriteLargeFile(places.In("small"), 20);
  SourceHandle const later(g_timeout_source_new_seconds(3600));
  g_source_attach(later.Get(), CFRunLoopGetCurrent()->context);
  for (int combination = 0; combination < 16; ++combination) {
    bool const isCopy = (combination & 1) != 0, overwrite = (combination & 2) != 0;
    bool const isNear = (combination & 4) != 0;
    std::string const folder = (isNear ? places.there : places.away).Path();
    if (overwrite) WriteFile(folder + "/target", "old");
    Calls calls((combination & 8) != 0 ? Calls::AtFirst : Calls::AtLast);
    std::string const from = places.In(isNear ? "large" : "small");
    EXPECT_EQ(Transfer(isCopy, from, folder + "/target", overwrite, &calls), "0");
    // A fifth of a second on an idle machine.
    EXPECT_LT(SecondsSince(calls.start) - calls.all.back().seconds, 1);
    EXPECT_EQ(Listing(folder) + ReadFile(folder + "/target"), overwrite ? "targetold" : "");
    EXPECT_EQ(Listing(places.here.Path()), "large small");
    fs::remove(folder + "/target");
  }
  g_source_destroy(later.Get());
}

TEST(CopyMove, MovesKeepTheEntryItself) {
  Places const places;
  for (std::string const& folder : {places.there.Path(), places.away.Path()}) {
    WriteFile(places.In("file"), "new");
    WriteFile(places.In("empty"), "");
    fs::create_symlink(places.In("file"), places.In("link"));
    WriteFile(folder + "/empty", "old");
    struct stat before, after;
    stat(places.In("file").c_str(), &before);
    Calls calls, callsOfEmpty;
    EXPECT_EQ(Transfer(kMove, places.In("link"), folder + "/link", false), "0");
    EXPECT_EQ(fs::read_symlink(folder + "/link"), places.In("file"));
    EXPECT_EQ(Transfer(kMove, places.In("file"), folder + "/file", false, &calls), "0");
    EXPECT_TRUE(calls.all.size() == 1 && calls.all[0].completed == 3);
    EXPECT_EQ(Transfer(kMove, places.In("empty"), folder + "/empty", true, &callsOfEmpty), "0");
    EXPECT_TRUE(callsOfEmpty.all.empty());
    stat((folder + "/file").c_str(), &after);
    EXPECT_EQ(before.st_ino == after.st_ino, folder == places.there.Path());
    EXPECT_EQ(ReadFile(folder + "/file") + ReadFile(folder + "/empty"), "new");
    EXPECT_EQ(Listing(places.here.Path()) + Listing(folder), "empty file link");
  }
}

TEST(CopyMove, DisksThatRefuseKeepWhatTheyHold) {
  Places const places;
  std::string const large = places.In("large"), target = places.there.Path() + "/target";
  WriteLargeFile(large, 3);
  auto const tryAll = [&] {
    WriteFile(target, "old");
    return Transfer(kMove, places.away.Path() + "/moved", target, true) + " " +
           Transfer(kCopy, large, target, true) + " " +
           Transfer(kCopy, large, target + "2", false) + ": " + Listing(places.there.Path()) + " " +
           ReadFile(target);
  };
  WriteLargeFile(places.away.Path() + "/moved", 3);
  std::string const expected = "10004 10003 10003: target old";
  EXPECT_EQ(InChild([&] {
              rlimit const limit = {kMegabyte, kMegabyte};
              setrlimit(RLIMIT_FSIZE, &limit);
              return tryAll();
            }),
            expected);
  std::string const full = InChild([&] {
    bool const isFull = OwnMountTable() && MountMemory(places.there.Path(), "size=2m");
    return isFull ? tryAll() : "";
  });
  EXPECT_EQ(fs::file_size(large), fs::file_size(places.away.Path() + "/moved"));
  if (full.empty()) GTEST_SKIP() << "no tmpfs can be mounted here to be filled";
  EXPECT_EQ(full, expected);
}
