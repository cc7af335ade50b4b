// Copies and moves as callers see them, and the faults that must leave all as it was.

#include <CoreFoundation/CFRunLoop.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <sstream>
#include <thread>
#include <tuple>
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

// What the callback was told. It stops the work at the first call, or at the one that says that all
// is done.
struct Calls {
  enum Stop { Never, AtFirst, AtLast };
  struct Call {
    unsigned long long total, completed;
    Clock::time_point time = Clock::now();
  };

  static bool Tell(unsigned long long total, unsigned long long completed, void* self) {
    auto& calls = *static_cast<Calls*>(self);
    EXPECT_EQ(std::this_thread::get_id(), calls.thread);
    calls.all.push_back({total, completed});
    return calls.stop == Never || (calls.stop == AtLast && completed < total);
  }

  Stop stop = Never;
  _CopyProgress_Info info = {Tell, this, nullptr};
  std::vector<Call> all = {};
  std::thread::id thread = std::this_thread::get_id();
};

// The result in hexadecimal digits, or the error code thrown.
std::string Transfer(bool isCopy, std::string const& from, std::string const& to, bool overwrite,
                     Calls* calls = nullptr) {
  Calls unheard;
  _CopyProgress_Info* const info = &(calls == nullptr ? unheard : *calls).info;
  auto const transfer = isCopy ? CUFile::CopyWithProgress : CUFile::MoveWithProgress;
  std::ostringstream text;
  text << std::hex;
  unsigned int const code =
      ThrownCode([&] { text << transfer(Make(from), Make(to), info, overwrite); });
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
  auto const in = [&](std::string const& name) {
    return name.empty() || name == "bare name" ? name : places.In(name);
  };
  // From where to where, and what is told, where "failed" is the failure of the operation.
  std::tuple<std::string, std::string, std::string> const cases[] = {
      {"dir", "new", "error 9"},      {"missing", "new", "error 9"},
      {"dangling", "new", "error 9"}, {"fifo", "new", "error 9"},
      {"", "new", "error 1"},         {"file", "", "error 1"},
      {"file", "bare name", "10001"}, {"file", "new/", "10001"},
      {"file", "dir", "failed"},      {"file", "missing/new", "failed"},
      {"file", "old/new", "failed"},  {"file", std::string(256, 'n'), "failed"}};
  for (bool const isCopy : {kCopy, kMove}) {
    std::string const failure = isCopy ? "10003" : "10004";
    for (auto const& [from, to, expected] : cases) {
      EXPECT_EQ(Transfer(isCopy, in(from), in(to), true), expected == "failed" ? failure : expected)
          << from << " " << to;
    }
    EXPECT_EQ(Transfer(isCopy, in("file"), in("dangling"), false), failure);
    EXPECT_EQ(Transfer(isCopy, in("file"), in("old"), false), "error 4");
  }
  EXPECT_EQ(Transfer(kCopy, "/dev/zero", in("new"), true), "10003");
  auto const file = Make(in("file"));
  EXPECT_EQ(ThrownCode([&] { CUFile::MoveWithProgress(file, Make(in("new")), nullptr, true); }),
            2u);
  EXPECT_EQ(Listing(places.here.Path()), "dangling dir fifo file old");
  EXPECT_EQ(ReadFile(in("file")) + ReadFile(in("old")), "newold");
}

// By the same path, a hard link, and symbolic links on either side.
TEST(CopyMove, OneFileByTwoNamesStays) {
  Places const places;
  WriteFile(places.In("file"), "whole");
  fs::create_hard_link(places.In("file"), places.In("hard"));
  fs::create_symlink("file", places.In("link"));
  fs::create_symlink("link", places.In("chain"));
  fs::create_symlink(places.here.Path(), places.there.Path() + "/away");
  std::string const names[] = {places.In("file"), places.In("hard"), places.In("chain"),
                               places.there.Path() + "/away/file"};
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
  for (std::string const& path : {places.In("large"), away}) WriteLargeFile(path, 200);
  int served = 0;
  auto const serve = [](gpointer count) -> gboolean { return ++*static_cast<int*>(count) < 3; };
  SourceHandle const source(g_idle_source_new());
  g_source_set_priority(source.Get(), G_PRIORITY_HIGH);
  g_source_set_callback(source.Get(), serve, &served, nullptr);
  g_source_attach(source.Get(), CFRunLoopGetCurrent()->context);
  Calls copy, move;
  auto const start = Clock::now();
  EXPECT_EQ(Transfer(kCopy, places.In("large"), places.In("copy"), false, &copy), "0");
  EXPECT_EQ(served, 3);
  EXPECT_EQ(Transfer(kMove, away, places.In("moved"), false, &move), "0");
  for (Calls const* calls : {&copy, &move}) {
    ASSERT_FALSE(calls->all.empty());
    Calls::Call before = {0, 0, start};
    for (Calls::Call const& call : calls->all) {
      bool const isLast = &call == &calls->all.back();
      EXPECT_EQ(call.total, 200 * kMegabyte);
      EXPECT_GE(call.completed, before.completed);
      EXPECT_EQ(call.completed == call.total, isLast);
      EXPECT_TRUE(isLast || call.time - before.time > std::chrono::milliseconds(99));
      before = call;
    }
  }
  for (char const* const name : {"copy", "moved"}) {
    EXPECT_TRUE(ReadFile(places.In(name)) == ReadFile(places.In("large")));
  }
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
  for (unsigned way = 0; way < 16; ++way) {
    bool const isCopy = (way & 1) != 0, overwrite = (way & 2) != 0, isNear = (way & 4) != 0;
    std::string const folder = (isNear ? places.there : places.away).Path();
    if (overwrite) WriteFile(folder + "/target", "old");
    Calls calls{(way & 8) != 0 ? Calls::AtFirst : Calls::AtLast};
    std::string const from = places.In(isNear ? "large" : "small");
    EXPECT_EQ(Transfer(isCopy, from, folder + "/target", overwrite, &calls), "0");
    // A fifth of a second on an idle machine.
    EXPECT_LT(Clock::now() - calls.all.back().time, std::chrono::seconds(1));
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
    Calls calls;
    EXPECT_EQ(Transfer(kMove, places.In("link"), folder + "/link", false), "0");
    EXPECT_EQ(fs::read_symlink(folder + "/link"), places.In("file"));
    EXPECT_EQ(Transfer(kMove, places.In("empty"), folder + "/empty", true, &calls), "0");
    EXPECT_TRUE(calls.all.empty());
    EXPECT_EQ(Transfer(kMove, places.In("file"), folder + "/file", false, &calls), "0");
    EXPECT_TRUE(calls.all.size() == 1 && calls.all[0].completed == 3);
    EXPECT_EQ(ReadFile(folder + "/file") + ReadFile(folder + "/empty"), "new");
    EXPECT_EQ(Listing(places.here.Path()) + Listing(folder), "empty file link");
  }
}

TEST(CopyMove, FullDisksKeepWhatTheyHold) {
  Places const places;
  std::string const large = places.In("large"), target = places.there.Path() + "/target";
  std::string const away = places.away.Path() + "/moved";
  for (std::string const& path : {large, away}) WriteLargeFile(path, 3);
  std::string const told = InChild([&]() -> std::string {
    if (!OwnMountTable() || !MountMemory(places.there.Path(), "size=2m")) return "no mount";
    WriteFile(target, "old");
    return Transfer(kMove, away, target, true) + " " + Transfer(kCopy, large, target, true) + " " +
           Transfer(kCopy, large, target + "2", false) + ": " + Listing(places.there.Path()) + " " +
           ReadFile(target);
  });
  EXPECT_EQ(fs::file_size(large), fs::file_size(away));
  if (told == "no mount") GTEST_SKIP() << "no tmpfs can be mounted here to be filled";
  EXPECT_EQ(told, "10004 10003 10003: target old");
}
