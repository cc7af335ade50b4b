// Copies and moves as callers see them, and the faults that must leave all as it was.

#include <CoreFoundation/CFRunLoop.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <set>
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
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"

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
                     Calls* calls) {
  char text[30];
  try {
    CUResult const result = (isCopy ? CUFile::CopyWithProgress : CUFile::MoveWithProgress)(
        Make(from), Make(to), &calls->info, overwrite);
    snprintf(text, sizeof text, "%x", static_cast<unsigned int>(result));
  } catch (unsigned int code) {
    snprintf(text, sizeof text, "error %u", code);
  }
  return text;
}
std::string Transfer(bool isCopy, std::string const& from, std::string const& to, bool overwrite) {
  Calls calls;
  return Transfer(isCopy, from, to, overwrite, &calls);
}

std::string Listing(std::string const& folder) {
  std::set<std::string> names;
  for (auto const& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename());
  std::string text;
  for (std::string const& name : names) text += (text.empty() ? "" : " ") + name;
  return text;
}

struct Places {
  std::string In(char const* name) const { return here.Path() + "/" + name; }
  TemporaryFolder here, there, away{"/dev/shm"};
};

// Takes some tenths of a second to copy to another volume.
void WriteLargeFile(std::string const& path) {
  std::ofstream file(path, std::ios::binary);
  std::string const block(1 << 20, 'l');
  for (int i = 0; i < 400; ++i) file << block;
}

}  // namespace

TEST(CopyMove, TellsEachRefusal) {
  Places const places;
  WriteFile(places.In("file"), "new");
  WriteFile(places.In("old"), "old");
  fs::create_directory(places.In("dir"));
  fs::create_symlink("nowhere", places.In("dangling"));
  fs::create_symlink("file", places.In("link"));
  mkfifo(places.In("fifo").c_str(), 0600);
  struct {
    std::string from, to;
    bool overwrite;
    char const *copied, *moved;
  } const cases[] = {{"file", "old", false, "error 4", "error 4"},
                     {"dir", "new", true, "error 9", "error 9"},
                     {"missing", "new", true, "error 9", "error 9"},
                     {"dangling", "new", true, "error 9", "error 9"},
                     {"fifo", "new", true, "error 9", "error 9"},
                     {"file", "dir", false, "10003", "10004"},
                     {"file", "dir", true, "10003", "10004"},
                     {"file", "dangling", false, "10003", "10004"},
                     {"file", "fifo", false, "10003", "10004"},
                     {"file", "missing/new", true, "10003", "10004"},
                     {"file", "old/new", true, "10003", "10004"},
                     {"file", "new/", true, "10001", "10001"},
                     {"file", std::string(256, 'n'), true, "10003", "10004"}};
  for (auto const& [from, to, overwrite, copied, moved] : cases) {
    for (bool const isCopy : {kCopy, kMove}) {
      EXPECT_EQ(Transfer(isCopy, places.In("") + from, places.In("") + to, overwrite),
                isCopy ? copied : moved)
          << from << " " << to;
    }
  }
  EXPECT_EQ(Transfer(kCopy, "/dev/zero", places.In("new"), false), "10003");
  EXPECT_EQ(Transfer(kCopy, places.In("file"), "bare name", false), "10001");
  EXPECT_EQ(Transfer(kCopy, places.In("file"), "", false), "error 1");
  EXPECT_EQ(Transfer(kCopy, "", places.In("new"), false), "error 1");
  CUFileInfo info(Make(places.In("file")));
  Calls calls;
  unsigned int codes = 0;
  for (bool const noInfo : {true, false}) {
    try {
      info.MoveWithProgress(noInfo ? Make(places.In("new")) : CUSharedPtr<CUStringMac>(),
                            noInfo ? nullptr : &calls.info, true);
    } catch (unsigned int code) {
      codes = codes * 10 + code;
    }
  }
  EXPECT_EQ(codes, 22u);
  EXPECT_EQ(Listing(places.here.Path()), "dangling dir fifo file link old");
  EXPECT_EQ(ReadFile(places.In("file")) + ReadFile(places.In("old")), "newold");
}

// By the same path, a hard link, and symbolic links on either side.
TEST(CopyMove, OneFileByTwoNamesStays) {
  Places const places;
  WriteFile(places.In("file"), "whole");
  fs::create_hard_link(places.In("file"), places.In("hard"));
  fs::create_symlink("file", places.In("link"));
  fs::create_symlink("link", places.In("chain"));
  std::pair<char const*, char const*> const cases[] = {
      {"file", "file"}, {"file", "hard"}, {"file", "link"},  {"link", "file"},
      {"link", "link"}, {"hard", "link"}, {"link", "chain"}, {"file", "../x/file"}};
  for (auto const& [from, to] : cases) {
    std::string target = to;
    if (target[0] == '.')
      target = "../" + places.here.Path().substr(places.here.Path().rfind('/') + 1) + "/file";
    EXPECT_EQ(Transfer(kCopy, places.In(from), places.In("") + target, true), "10003")
        << from << to;
    EXPECT_EQ(Transfer(kMove, places.In(from), places.In("") + target, true), "10004")
        << from << to;
    EXPECT_EQ(Listing(places.here.Path()), "chain file hard link");
    EXPECT_EQ(ReadFile(places.In("chain")) + ReadFile(places.In("hard")), "wholewhole");
  }
}

TEST(CopyMove, ReportsOnItsWayAndServesTheRunLoop) {
  Places const places;
  CFRunLoopGetCurrent();  // a loop keeps a descriptor from its first use
  long const descriptors = OpenDescriptors();
  WriteLargeFile(places.away.Path() + "/large");
  auto const size = fs::file_size(places.away.Path() + "/large");
  int served = 0;
  SourceHandle const source(g_idle_source_new());
  g_source_set_priority(source.Get(), G_PRIORITY_HIGH);
  g_source_set_callback(
      source.Get(), [](gpointer count) -> gboolean { return ++*static_cast<int*>(count) < 3; },
      &served, nullptr);
  g_source_attach(source.Get(), CFRunLoopGetCurrent()->context);
  Calls copy;
  EXPECT_EQ(Transfer(kCopy, places.away.Path() + "/large", places.In("copy"), false, &copy), "0");
  EXPECT_EQ(served, 3);
  Calls move;
  EXPECT_EQ(Transfer(kMove, places.away.Path() + "/large", places.In("moved"), false, &move), "0");
  EXPECT_FALSE(fs::exists(places.away.Path() + "/large"));
  for (Calls const* calls : {&copy, &move}) {
    ASSERT_FALSE(calls->all.empty());
    Calls::Call before = {size, 0, 0};
    for (Calls::Call const& call : calls->all) {
      bool const isLast = &call == &calls->all.back();
      EXPECT_EQ(call.total, size);
      EXPECT_GE(call.completed, before.completed);
      EXPECT_EQ(call.completed == size, isLast);
      if (!isLast) {
        EXPECT_GE(call.seconds - before.seconds, 0.099);
      }
      before = call;
    }
  }
  EXPECT_TRUE(ReadFile(places.In("copy")) == ReadFile(places.In("moved")));
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 5, true), kCFRunLoopRunFinished);
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

// On a run loop that has something of the application's to wait for.
TEST(CopyMove, ACancelLeavesTheOldAndIsQuick) {
  Places const places;
  WriteLargeFile(places.In("large"));
  SourceHandle const later(g_timeout_source_new_seconds(3600));
  g_source_attach(later.Get(), CFRunLoopGetCurrent()->context);
  for (Calls::Stop const stop : {Calls::AtFirst, Calls::AtLast}) {
    for (bool const isCopy : {kCopy, kMove}) {
      for (std::string const& folder : {places.away.Path(), places.there.Path()}) {
        for (bool const overwrite : {false, true}) {
          if (overwrite) WriteFile(folder + "/target", "old");
          Calls calls(stop);
          EXPECT_EQ(Transfer(isCopy, places.In("large"), folder + "/target", overwrite, &calls),
                    "0");
          EXPECT_LT(SecondsSince(calls.start) - calls.all.back().seconds, 1)
              << "0.2 on an idle machine";
          EXPECT_EQ(Listing(folder), overwrite ? "target" : "");
          if (overwrite) {
            EXPECT_EQ(ReadFile(folder + "/target"), "old");
          }
          EXPECT_EQ(fs::file_size(places.In("large")), 400u << 20);
          fs::remove(folder + "/target");
        }
      }
    }
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
    bool const stays = folder == places.there.Path();
    struct stat before, after;
    stat(places.In("file").c_str(), &before);
    Calls linkCalls, fileCalls, emptyCalls;
    EXPECT_EQ(Transfer(kMove, places.In("link"), folder + "/link", false, &linkCalls), "0");
    EXPECT_EQ(fs::read_symlink(folder + "/link"), places.In("file"));
    EXPECT_EQ(Transfer(kMove, places.In("file"), folder + "/file", false, &fileCalls), "0");
    ASSERT_EQ(fileCalls.all.size(), 1u);
    EXPECT_EQ(fileCalls.all[0].completed, 3u);
    EXPECT_EQ(Transfer(kMove, places.In("empty"), folder + "/empty", true, &emptyCalls), "0");
    EXPECT_TRUE(emptyCalls.all.empty());
    EXPECT_EQ(ReadFile(folder + "/file") + ReadFile(folder + "/empty"), "new");
    stat((folder + "/file").c_str(), &after);
    EXPECT_EQ(before.st_ino == after.st_ino, stays);
    EXPECT_EQ(Listing(places.here.Path()), "");
    EXPECT_EQ(Listing(folder), "empty file link");
  }
}

TEST(CopyMove, DisksThatRefuseKeepWhatTheyHold) {
  Places const places;
  WriteFile(places.In("large"), std::string(3 << 20, 'l'));
  chmod(places.here.Path().c_str(), 0755);
  std::string const target = places.there.Path() + "/target";
  auto const tryAll = [&] {
    std::string results = Transfer(kCopy, places.In("large"), target, true);
    results += " " + Transfer(kCopy, places.In("large"), target + "2", false);
    results += " " + Transfer(kMove, places.In("large"), target, true);
    return results + ": " + Listing(places.there.Path()) + " " + ReadFile(target);
  };
  std::string const expected = "10003 10003 10004: target old";
  std::string const full = InChild([&] {
    if (!OwnMountTable() || !MountMemory(places.there.Path(), "size=2m"))
      return std::string("skip");
    WriteFile(target, "old");
    return tryAll();
  });
  WriteFile(target, "old");
  EXPECT_EQ(InChild([&] {
              rlimit const limit = {1 << 20, 1 << 20};
              setrlimit(RLIMIT_FSIZE, &limit);
              std::string results = Transfer(kCopy, places.In("large"), target, true);
              return results + " " + Listing(places.there.Path()) + " " + ReadFile(target);
            }),
            "10003 target old");
  chmod(places.there.Path().c_str(), 0555);
  EXPECT_EQ(InChild([&] { return BecomeNobody() ? tryAll() : "skip"; }),
            geteuid() == 0 ? expected : "skip");
  EXPECT_EQ(fs::file_size(places.In("large")), 3u << 20);
  if (full == "skip") GTEST_SKIP() << "no tmpfs can be mounted here to be filled";
  EXPECT_EQ(full, expected);
}

// A child copies and moves without end and is killed at any moment.
TEST(CopyMove, AKilledProcessLeavesWholeFiles) {
  Places const places;
  std::string const old(2 << 20, 'o'), fresh(3 << 20, 'f');
  std::string const here = places.there.Path() + "/target", away = places.away.Path() + "/target";
  WriteFile(places.In("old"), old);
  WriteFile(places.In("fresh"), fresh);
  WriteFile(here, old);
  std::mt19937 chance(1);
  for (int round = 0; round < 30; ++round) {
    pid_t const child = fork();
    ASSERT_GE(child, 0);
    while (child == 0) {
      Transfer(kCopy, places.In("fresh"), here, true);
      Transfer(kMove, here, away, true);
      Transfer(kCopy, places.In("old"), away, true);
      Transfer(kMove, away, here, true);
    }
    usleep(static_cast<useconds_t>(chance() % 25000));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    int found = 0;
    for (std::string const& target : {here, away}) {
      if (!fs::exists(target)) continue;
      ++found;
      std::string const bytes = ReadFile(target);
      EXPECT_TRUE(bytes == old || bytes == fresh) << target << " has " << bytes.size();
      std::string const folder = fs::path(target).parent_path();
      for (auto const& entry : fs::directory_iterator(folder)) {
        std::string const name = entry.path().filename();
        EXPECT_TRUE(name == "target" || (name.find(".target.quillmere-") == 0 &&
                                         name.substr(name.size() - 5) == ".part"))
            << name;
      }
    }
    EXPECT_GE(found, 1);
  }
}
