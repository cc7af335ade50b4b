#include <CoreServices/Files.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <optional>
#include <thread>
#include <vector>

#include "platform/linux/FileNames.h"
#include "tests/support/ChecksInChild.h"
#include "tests/support/DeniedCall.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/Files.h"
#include "tests/support/Mounts.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using std::to_string;
using namespace std::string_literals;

OSStatus Resolve(std::string const& path, FSRef* ref, Boolean* isDirectory = nullptr) {
  return FSPathMakeRef(reinterpret_cast<UInt8 const*>(path.c_str()), ref, isDirectory);
}

OSErr Create(FSRef const& parent, std::u16string const& name, FSRef* created = nullptr,
             bool isDirectory = false) {
  std::vector<UniChar> const units(name.begin(), name.end());
  return isDirectory ? FSCreateDirectoryUnicode(&parent, units.size(), units.data(), kFSCatInfoNone,
                                                nullptr, created, nullptr, nullptr)
                     : FSCreateFileUnicode(&parent, units.size(), units.data(), kFSCatInfoNone,
                                           nullptr, created, nullptr);
}

OSStatus Open(std::string const& path, SInt8 permissions, FSIORefNum* fork) {
  FSRef ref;
  OSStatus const status = Resolve(path, &ref);
  return status == noErr ? FSOpenFork(&ref, 0, nullptr, permissions, fork) : status;
}

// What a call came to, as "status what@mark".
std::string Told(OSErr status, std::string const& what, FSIORefNum fork) {
  SInt64 mark = -99;
  FSGetForkPosition(fork, &mark);
  return to_string(status) + " " + what + "@" + to_string(mark);
}

// With the bytes read.
std::string Read(FSIORefNum fork, UInt16 mode, SInt64 offset, ByteCount count) {
  std::string bytes(count, '#');
  ByteCount actual = 99;
  OSErr const status = FSReadFork(fork, mode, offset, count, bytes.data(), &actual);
  return Told(status, bytes.substr(0, actual), fork);
}

// With how many bytes were written.
std::string Write(FSIORefNum fork, UInt16 mode, SInt64 offset, std::string const& bytes) {
  ByteCount actual = 99;
  OSErr const status = FSWriteFork(fork, mode, offset, bytes.size(), bytes.data(), &actual);
  return Told(status, to_string(actual), fork);
}

// With the size afterwards.
std::string Resize(FSIORefNum fork, UInt16 mode, SInt64 offset) {
  SInt64 size = -99;
  OSErr const status = FSSetForkSize(fork, mode, offset);
  FSGetForkSize(fork, &size);
  return Told(status, to_string(size), fork);
}

class Files : public testing::Test {
 protected:
  Files() { EXPECT_EQ(Resolve(root, &rootRef), noErr); }
  ~Files() override { FSCloseFork(fork); }
  std::string At(std::string const& name) const { return root + "/" + name; }
  void OpenFile(std::string const& contents) {
    WriteFile(file, contents);
    ASSERT_EQ(Open(file, fsRdWrPerm, &fork), noErr);
  }

  TemporaryFolder const folder;
  std::string const root = fs::canonical(folder.Path());
  std::string const file = At("file");
  FSRef rootRef;
  FSIORefNum fork = 0;
};

}  // namespace

TEST_F(Files, ResolvesWhatExistsToAPathThatIsNoLink) {
  std::string const dir = At("dir"), slashes(4095 - root.size() - 5, '/');
  WriteFile(file, "x");
  fs::create_directory(dir);
  for (std::string const name : {"file", "dir", "to-dir", "nowhere"}) {
    fs::create_symlink(name, At("to-" + name));
  }
  fs::create_symlink("circle", At("circle"));
  // What the paths lead to, or the status that they fail with.
  std::pair<std::string, std::vector<std::string>> const cases[] = {
      {file, {file, At("to-file"), "to-file"}},
      {dir, {dir, dir + "///", dir + "/.", At("to-dir/"), At("to-to-dir")}},
      {root, {".", At("to-dir/..")}},
      {"/", {"/", "//"}},
      {At(slashes + "file"), {At(slashes + "file")}},
      {At("." + slashes + "dir"), {"." + slashes + "dir"}},
      {"-37", {At(slashes + "/file"), "./" + slashes + "dir", At(std::string(256, 'n'))}},
      {"-120", {file + "/", At("to-file/"), file + "/x"}},
      {"-43", {At("to-nowhere"), At("circle"), At("missing/x"), ""}}};
  fs::path const before = fs::current_path();
  fs::current_path(root);
  for (auto const& [expected, paths] : cases) {
    for (std::string const& path : paths) {
      FSRef ref = {};
      Boolean isDirectory = 7;
      OSStatus const status = Resolve(path, &ref, &isDirectory);
      EXPECT_EQ(ref.path + (status == noErr ? "" : to_string(status)), expected) << path;
      EXPECT_EQ(isDirectory, status == noErr ? fs::is_directory(path) : 7) << path;
    }
  }
  fs::current_path(before);
  EXPECT_EQ(FSPathMakeRef(nullptr, &rootRef, nullptr), fnfErr);
}

TEST_F(Files, CreatesUnderExactlyTheNameGiven) {
  std::string umlauts;
  for (int i = 0; i < 127; ++i) umlauts += "ä";
  std::pair<std::u16string, std::string> const good[] = {
      {u"12/30", "12:30"},
      {u"...", "..."},
      {u"\xD83C\xDFAC ça", "\xF0\x9F\x8E\xAC ça"},
      {std::u16string(255, u'n'), std::string(255, 'n')},
      {std::u16string(127, u'ä') + u"x", umlauts + "x"}};
  fs::create_symlink("nowhere", At("dangling"));
  mode_t const mask = umask(027);
  for (bool const isDirectory : {false, true}) {
    for (auto const& [name, onDisk] : good) {
      FSRef created = {};
      EXPECT_EQ(Create(rootRef, name, &created, isDirectory), noErr) << onDisk;
      EXPECT_EQ(created.path, At(onDisk));
      struct stat facts = {};
      lstat(At(onDisk).c_str(), &facts);
      EXPECT_EQ(facts.st_mode, isDirectory ? S_IFDIR | 0750u : S_IFREG | 0640u) << onDisk;
      EXPECT_EQ(Create(rootRef, name, nullptr, isDirectory), dupFNErr);
      fs::remove(created.path);
    }
    for (std::u16string const& name : {u""s, u"."s, u".."s, u"a:b"s, u"a\0b"s, u"x\xD800"s,
                                       std::u16string(256, u'n'), std::u16string(128, u'ä')}) {
      EXPECT_EQ(Create(rootRef, name, nullptr, isDirectory), bdNamErr) << name.size();
    }
    EXPECT_EQ(Create(rootRef, u"dangling", nullptr, isDirectory), dupFNErr);
  }
  umask(mask);
  EXPECT_EQ(std::distance(fs::directory_iterator(root), {}), 1);

  FSRef parent = rootRef;
  strcat(parent.path, std::string(4095 - root.size() - 1, '/').c_str());
  EXPECT_EQ(Create(parent, u"ab"), bdNamErr);
  std::size_t length = 4094;
  EXPECT_EQ(AppendToPath(&parent, &length, "ab", 2), bdNamErr) << "without room for its end";
  EXPECT_EQ(Create(parent, u"a"), noErr);
  strcpy(parent.path, At("a").c_str());
  EXPECT_EQ(Create(parent, u"x"), dirNFErr);
  fs::remove(parent.path);
  EXPECT_EQ(Create(parent, u"x"), fnfErr);
}

// A file and a FIFO change places all the time: what was a file when it was looked at may be a FIFO
// when it is opened, which would block, and must never become a fork.
TEST_F(Files, NeitherBlocksNorOpensWhenAFifoTakesTheFilesPlace) {
  WriteFile(file, "x");
  mkfifo(At("fifo").c_str(), 0600);
  FSRef ref;
  ASSERT_EQ(Resolve(file, &ref), noErr);
  std::atomic<bool> over{false};
  std::thread swapper([&] {
    while (!over) renameat2(0, ref.path, 0, At("fifo").c_str(), RENAME_EXCHANGE);
  });
  long faults = 0;
  for (int round = 0; round < 30000; ++round) {
    SInt64 size = 0;
    OSErr const status = FSOpenFork(&ref, 0, nullptr, round % 2 == 0 ? fsRdPerm : fsWrPerm, &fork);
    if (status == noErr) {
      faults += FSGetForkSize(fork, &size) != noErr || size != 1 || FSCloseFork(fork) != noErr;
    } else {
      faults += status != opWrErr;
    }
  }
  over = true;
  swapper.join();
  EXPECT_EQ(faults, 0);
  EXPECT_EQ(FSOpenFork(&ref, 0, nullptr, 4, &fork), paramErr);
  fs::remove(file);
  EXPECT_EQ(FSOpenFork(&ref, 0, nullptr, fsRdPerm, &fork), fnfErr);
  fs::create_symlink("fifo", file);
  EXPECT_EQ(FSOpenFork(&ref, 0, nullptr, fsRdPerm, &fork), opWrErr);
}

TEST_F(Files, OpensForReadingWhatIsOnAReadOnlyVolume) {
  WriteFile(file, "x");
  std::string const skipped = ChecksInChild([&] {
    if (!OwnMountTable() || !MountReadOnly(root)) return "no mount";
    EXPECT_EQ(Create(rootRef, u"new"), wPrErr);
    EXPECT_EQ(Open(file, fsWrPerm, &fork), wPrErr);
    EXPECT_EQ(Open(file, fsCurPerm, &fork), noErr);
    EXPECT_EQ(Write(fork, fsFromStart, 0, "y"), "-54 0@0");
    return "";
  });
  if (skipped == "no mount") GTEST_SKIP() << "this user may not mount";
  EXPECT_EQ(skipped, "");
}

TEST_F(Files, SurvivesRunningOutOfDescriptorsAndMemory) {
  WriteFile(file, "x");
  FSRef ref;
  ASSERT_EQ(Resolve(file, &ref), noErr);
  auto const useUpDescriptors = [&] {
    rlimit const limit = {64, 64};
    setrlimit(RLIMIT_NOFILE, &limit);
    FSIORefNum last = 0;
    OSStatus status = noErr;
    while (status == noErr) status = Open(file, fsRdPerm, &last);
    EXPECT_EQ(status, tmfoErr);
    EXPECT_EQ(Create(rootRef, u"new"), tmfoErr);
    EXPECT_EQ(FSCloseFork(last), noErr);
    EXPECT_EQ(Open(file, fsRdPerm, &fork), noErr);
    EXPECT_EQ(fork, last);
    return "";
  };
  EXPECT_EQ(ChecksInChild(useUpDescriptors), "");
  // Beyond the descriptors of other tests, opening needs memory for the mark.
  auto const useUpMemory = [&] {
    for (int last = 0; last >= 0 && last < 767;) last = dup(STDERR_FILENO);
    long const before = OpenDescriptors();
    auto failing = std::make_optional<FailingAllocation>(1);
    OSErr const status = FSOpenFork(&ref, 0, nullptr, fsRdPerm, &fork);
    failing.reset();
    EXPECT_EQ(status, memFullErr);
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_EQ(Open(file, fsRdPerm, &fork), noErr);
    return "";
  };
  EXPECT_EQ(ChecksInChild(useUpMemory), "");
}

TEST_F(Files, TransfersAtEveryModeAndKeepsTheMark) {
  OpenFile("0123456789");
  EXPECT_EQ(Read(fork, fsAtMark, 5, 3), "0 012@3");
  EXPECT_EQ(Read(fork, fsFromMark, 2, 2), "0 56@7");
  EXPECT_EQ(Read(fork, fsFromMark, -3, 1), "0 4@5");
  EXPECT_EQ(Read(fork, fsFromLEOF, -2, 1), "0 8@9");
  EXPECT_EQ(Read(fork, fsAtMark, 0, 4), "-39 9@10");
  EXPECT_EQ(Read(fork, fsAtMark, 0, 0), "0 @10");
  EXPECT_EQ(Read(fork, fsFromStart, 4, 0), "0 @4");
  EXPECT_EQ(Read(fork, fsFromStart, 20, 1), "-39 @20");
  EXPECT_EQ(Read(fork, fsFromStart, -1, 1), "-40 @20");
  EXPECT_EQ(Read(fork, fsFromMark, LLONG_MAX, 1), "-40 @20");
  EXPECT_EQ(Read(fork, 4, 0, 1), "-50 @20");
  EXPECT_EQ(Read(fork, fsFromStart, LLONG_MAX, 1), "-39 @" + to_string(LLONG_MAX));
  // At the end as it is by then, whoever has moved it.
  FSIORefNum other = 0;
  ASSERT_EQ(Open(file, fsRdWrPerm, &other), noErr);
  EXPECT_EQ(Write(fork, fsFromLEOF, 0, "A"), "0 1@11");
  EXPECT_EQ(Write(other, fsFromLEOF, 0, "B"), "0 1@12");
  EXPECT_EQ(Write(fork, fsAtMark, 0, ""), "0 0@11");
  EXPECT_EQ(Write(fork, fsFromLEOF, 0, ""), "0 0@12");
  EXPECT_EQ(FSCloseFork(other), noErr);
  EXPECT_EQ(Write(fork, fsFromMark, 1, "C"), "0 1@14");
  EXPECT_EQ(Write(fork, fsFromStart, 1, "xy"), "0 2@3");
  EXPECT_EQ(Write(fork, fsFromMark, -4, "n"), "-40 0@3");
  EXPECT_EQ(Write(fork, fsAtMark, -9, "z"), "0 1@4");
  EXPECT_EQ(ReadFile(file), "0xyz456789AB\0C"s);
}

// Red when an append fails there, goes over another's, or turns what follows into appends.
TEST_F(Files, AppendsWhereTheKernelHasNoCallForIt) {
  OpenFile("0123");
  FSIORefNum other = 0;
  ASSERT_EQ(Open(file, fsRdWrPerm, &other), noErr);
  std::string const skipped = ChecksInChild([&] {
    if (!DenyCall(SYS_pwritev2, ENOSYS)) return "no call can be denied";
    EXPECT_EQ(Write(fork, fsFromLEOF, 0, "A"), "0 1@5");
    EXPECT_EQ(Write(other, fsFromLEOF, 0, "BC"), "0 2@7");
    EXPECT_EQ(Write(fork, fsAtMark, 0, ""), "0 0@5");
    EXPECT_EQ(Write(fork, fsFromStart, 1, "x"), "0 1@2");
    EXPECT_EQ(ReadFile(file), "0x23ABC");
    return "";
  });
  FSCloseFork(other);
  if (skipped == "no call can be denied") GTEST_SKIP() << skipped;
  EXPECT_EQ(skipped, "");
}

TEST_F(Files, ResizesAndPullsTheMarkBackToTheEnd) {
  OpenFile("0123456789");
  auto const resizeFrom = [&](SInt64 mark, UInt16 mode, SInt64 offset) {
    EXPECT_EQ(FSSetForkPosition(fork, fsFromStart, mark), noErr);
    return Resize(fork, mode, offset);
  };
  EXPECT_EQ(resizeFrom(4, fsFromStart, 20), "0 20@4");
  EXPECT_EQ(resizeFrom(30, fsFromStart, 25), "0 25@25");
  EXPECT_EQ(resizeFrom(6, fsFromLEOF, -20), "0 5@5");
  EXPECT_EQ(resizeFrom(2, fsFromMark, 1), "0 3@2");
  EXPECT_EQ(resizeFrom(2, fsAtMark, 9), "0 2@2");
  EXPECT_EQ(resizeFrom(1, fsFromLEOF, -3), "-40 2@1");
  EXPECT_EQ(resizeFrom(1, 9, 0), "-50 2@1");
  EXPECT_EQ(resizeFrom(1, fsFromStart, LLONG_MAX), "-34 2@1");
  EXPECT_EQ(FSSetForkPosition(fork, fsFromLEOF, 3), noErr);
  EXPECT_EQ(FSSetForkPosition(fork, fsFromMark, -6), posErr);
  EXPECT_EQ(Write(fork, fsAtMark, 0, ""), "0 0@5");
}

TEST_F(Files, KeepsToThePermissionsAndToTheProcess) {
  WriteFile(file, "abc");
  FSIORefNum reader = 0, writer = 0;
  ASSERT_EQ(Open(file, fsRdPerm, &reader), noErr);
  ASSERT_EQ(Open(file, fsWrPerm, &writer), noErr);
  EXPECT_EQ(Read(writer, fsAtMark, 0, 1), "-54 @0");
  EXPECT_EQ(Write(reader, fsAtMark, 0, "x"), "-54 0@0");
  EXPECT_EQ(Write(reader, fsFromLEOF, 0, "x"), "-54 0@3");
  EXPECT_EQ(Resize(reader, fsFromStart, 0), "-54 3@3");
  EXPECT_EQ(ReadFile(file), "abc");
  for (FSIORefNum const number : {reader, writer}) {
    EXPECT_NE(fcntl(number - 1, F_GETFD) & FD_CLOEXEC, 0) << "a program started inherits it";
    EXPECT_EQ(FSCloseFork(number), noErr);
  }
  for (FSIORefNum const number : {reader, writer, 0, -1, INT_MIN, INT_MAX, 1 << 20}) {
    EXPECT_EQ(Read(number, fsAtMark, 0, 3), "-51 @-99") << number;
    EXPECT_EQ(Write(number, fsAtMark, 0, "x"), "-51 0@-99");
    EXPECT_EQ(Write(number, fsFromLEOF, 0, "x"), "-51 0@-99");
    EXPECT_EQ(Resize(number, fsFromStart, 0), "-51 -99@-99");
    EXPECT_EQ(FSSetForkPosition(number, fsFromStart, 0), rfNumErr);
    EXPECT_EQ(FSCloseFork(number), rfNumErr);
  }
}

TEST_F(Files, CarriesTransfersOnToTheLastByteThatFits) {
  ASSERT_EQ(Open("/dev/full", fsRdWrPerm, &fork), noErr);
  EXPECT_EQ(Write(fork, fsAtMark, 0, "x"), "-34 0@0");
  EXPECT_EQ(Read(fork, fsFromStart, 7, 3), "0 \0\0\0@10"s);
  EXPECT_EQ(FSCloseFork(fork), noErr);

  ASSERT_EQ(Open("/dev/null", fsWrPerm, &fork), noErr);
  EXPECT_EQ(Write(fork, fsFromStart, LLONG_MAX - 9, std::string(20, 'x')),
            "-34 9@" + to_string(LLONG_MAX));
  EXPECT_EQ(FSSetForkSize(fork, fsFromStart, 0), paramErr);
  EXPECT_EQ(FSCloseFork(fork), noErr);

  OpenFile("");
  auto const limitSize = [&] {
    signal(SIGXFSZ, SIG_IGN);
    rlimit const limit = {1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(Write(fork, fsFromStart, 400, std::string(700, 'x')), "-34 600@1000");
    EXPECT_EQ(Resize(fork, fsFromStart, 1001), "-34 1000@1000");
    return "";
  };
  EXPECT_EQ(ChecksInChild(limitSize), "");
}

// The device stops at each signal, behind some of the bytes.
TEST_F(Files, CarriesOnWhatSignalsInterrupt) {
  ASSERT_EQ(Open("/dev/zero", fsRdPerm, &fork), noErr);
  struct sigaction action = {}, former;
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, &former);
  itimerval const often = {{0, 200}, {0, 200}}, never = {};
  setitimer(ITIMER_REAL, &often, nullptr);
  constexpr ByteCount kCount = 64 << 20;
  std::string const told = Read(fork, fsAtMark, 0, kCount);
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &former, nullptr);
  EXPECT_TRUE(told == "0 " + std::string(kCount, '\0') + "@" + to_string(kCount));
}
