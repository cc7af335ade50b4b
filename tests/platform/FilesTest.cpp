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
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <thread>
#include <vector>

#include "platform/linux/FileNames.h"
#include "tests/support/DeniedCall.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/Mounts.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Threads.h"

namespace {

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

OSErr Open(std::string const& path, SInt8 permissions, FSIORefNum* fork) {
  FSRef ref;
  OSStatus const status = Resolve(path, &ref);
  return status == noErr ? FSOpenFork(&ref, 0, nullptr, permissions, fork)
                         : static_cast<OSErr>(status);
}

OSErr Read(FSIORefNum fork, UInt16 mode, SInt64 offset, ByteCount count, std::string* bytes) {
  bytes->assign(count, '#');
  ByteCount actual = 99;
  OSErr const status = FSReadFork(fork, mode, offset, count, bytes->data(), &actual);
  bytes->resize(actual);
  return status;
}

std::string Joined(std::initializer_list<SInt64> numbers) {
  std::string text;
  for (SInt64 const number : numbers) text += (text.empty() ? "" : " ") + to_string(number);
  return text;
}

// The status, and the bytes written.
std::string Write(FSIORefNum fork, UInt16 mode, SInt64 offset, std::string const& bytes) {
  ByteCount actual = 99;
  OSErr const status = FSWriteFork(fork, mode, offset, bytes.size(), bytes.data(), &actual);
  return Joined({status, static_cast<SInt64>(actual)});
}

SInt64 Mark(FSIORefNum fork) {
  SInt64 mark = -99;
  return FSGetForkPosition(fork, &mark) == noErr ? mark : -99;
}

class Files : public testing::Test {
 protected:
  Files() { EXPECT_EQ(Resolve(root, &rootRef), noErr); }
  ~Files() override { FSCloseFork(fork); }

  TemporaryFolder const folder;
  std::string const root = std::filesystem::canonical(folder.Path());
  FSRef rootRef;
  FSIORefNum fork = 0;
};

}  // namespace

TEST_F(Files, ResolvesWhatExistsToAPathThatIsNoLink) {
  WriteFile(root + "/file", "x");
  mkdir((root + "/dir").c_str(), 0755);
  mkfifo((root + "/fifo").c_str(), 0600);
  symlink("file", (root + "/toFile").c_str());
  symlink((root + "/dir").c_str(), (root + "/toDir").c_str());
  symlink("toDir", (root + "/chain").c_str());
  symlink("nowhere", (root + "/dangling").c_str());
  symlink("circle", (root + "/circle").c_str());
  std::string const slashes(4095 - root.size() - 5, '/');
  std::string const file = root + "/file", dir = root + "/dir", name(256, 'n');
  // What the paths lead to, or the status that they fail with.
  std::pair<std::string, std::vector<std::string>> const cases[] = {
      {file, {file, root + "/toFile", "toFile"}},
      {dir,
       {dir, dir + "///", dir + "/.", root + "/toDir", root + "/toDir/", root + "/chain", "dir"}},
      {root, {".", root + "/toDir/.."}},
      {root + "/fifo", {root + "/fifo"}},
      {"/", {"/", "//"}},
      {root + slashes + "/file", {root + slashes + "/file"}},
      {root + "/." + slashes + "dir", {"." + slashes + "dir"}},
      {"-37",
       {root + slashes + "//file", "./" + slashes + "dir", root + "/" + name, slashes + slashes}},
      {"-120", {file + "/", root + "/toFile/", file + "/x"}},
      {"-43", {root + "/dangling", root + "/circle", root + "/missing", root + "/missing/x", ""}}};
  auto const before = std::filesystem::current_path();
  std::filesystem::current_path(root);
  for (auto const& [expected, paths] : cases) {
    for (std::string const& path : paths) {
      FSRef ref;
      strcpy(ref.path, "untouched");
      Boolean isDirectory = 7;
      OSStatus const status = Resolve(path, &ref, &isDirectory);
      EXPECT_EQ(status == noErr ? ref.path : to_string(status), expected) << path;
      EXPECT_EQ(isDirectory, status == noErr ? std::filesystem::is_directory(path) : 7) << path;
      EXPECT_TRUE(status == noErr || ref.path == "untouched"s) << path;
    }
  }
  std::filesystem::current_path(before);
  FSRef ref;
  EXPECT_EQ(FSPathMakeRef(nullptr, &ref, nullptr), fnfErr);
}

TEST_F(Files, CreatesUnderExactlyTheNameGiven) {
  std::string umlauts;
  for (int i = 0; i < 127; ++i) umlauts += "ä";
  std::pair<std::u16string, std::string> const good[] = {
      {u"plain", "plain"},
      {u"12/30", "12:30"},
      {u"...", "..."},
      {u"\xD83C\xDFAC ça", "\xF0\x9F\x8E\xAC ça"},
      {u"\x7F\x80\x7FF\x800\xFFFF", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
      {u"\xD800\xDC00\xDBFF\xDFFF", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
      {std::u16string(255, u'n'), std::string(255, 'n')},
      {std::u16string(127, u'ä') + u"x", umlauts + "x"}};
  symlink("nowhere", (root + "/dangling").c_str());
  mkdir((root + "/dir").c_str(), 0755);
  mode_t const mask = umask(027);
  for (bool const isDirectory : {false, true}) {
    for (auto const& [name, onDisk] : good) {
      FSRef created = {};
      EXPECT_EQ(Create(rootRef, name, &created, isDirectory), noErr) << onDisk;
      EXPECT_EQ(created.path, root + "/" + onDisk);
      struct stat facts = {};
      EXPECT_EQ(lstat((root + "/" + onDisk).c_str(), &facts), 0) << onDisk;
      EXPECT_EQ(facts.st_mode, isDirectory ? S_IFDIR | 0750u : S_IFREG | 0640u);
      EXPECT_EQ(Create(rootRef, name, nullptr, isDirectory), dupFNErr);
      remove(created.path);
    }
    for (std::u16string const& name :
         {u""s, u"."s, u".."s, u"a:b"s, u"a\0b"s, u"\xD800"s, u"\xDC00x"s, u"\xD800\xD800"s,
          u"x\xDBFF"s, std::u16string(256, u'n'), std::u16string(128, u'ä')}) {
      EXPECT_EQ(Create(rootRef, name, nullptr, isDirectory), bdNamErr) << name.size();
    }
    for (char16_t const* const name : {u"dir", u"dangling"}) {
      EXPECT_EQ(Create(rootRef, name, nullptr, isDirectory), dupFNErr);
    }
  }
  umask(mask);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(root), {}), 2);

  FSRef deep = rootRef;
  std::string const filler(4095 - root.size() - 1, '/');
  strcat(deep.path, filler.c_str());
  EXPECT_EQ(Create(deep, u"ab"), bdNamErr);
  std::size_t length = 4094;
  EXPECT_EQ(AppendToPath(&deep, &length, "ab", 2), bdNamErr) << "without room for its end";
  EXPECT_EQ(Create(deep, u"a"), noErr);
  FSRef parent;
  ASSERT_EQ(Resolve(root + "/a", &parent), noErr);
  EXPECT_EQ(Create(parent, u"x"), dirNFErr);
  unlink(parent.path);
  EXPECT_EQ(Create(parent, u"x"), fnfErr);
}

TEST_F(Files, RefusesToOpenWithoutBlockingOrLeaking) {
  WriteFile(root + "/file", "x");
  mkdir((root + "/dir").c_str(), 0755);
  mkfifo((root + "/fifo").c_str(), 0600);
  long const before = OpenDescriptors();

  fork = 77;
  for (SInt8 const permissions : {fsCurPerm, fsRdPerm, fsWrPerm, fsRdWrPerm}) {
    for (char const* const name : {"/dir", "/fifo"}) {
      EXPECT_EQ(Open(root + name, permissions, &fork), opWrErr) << name;
    }
  }
  FSRef ref;
  ASSERT_EQ(Resolve(root + "/file", &ref), noErr);
  EXPECT_EQ(FSOpenFork(&ref, 0, nullptr, 4, &fork), paramErr);
  unlink(ref.path);
  EXPECT_EQ(FSOpenFork(&ref, 0, nullptr, fsRdPerm, &fork), fnfErr);
  symlink("dir", ref.path);
  EXPECT_EQ(FSOpenFork(&ref, 0, nullptr, fsRdPerm, &fork), opWrErr);
  EXPECT_EQ(fork, 77);
  EXPECT_EQ(OpenDescriptors(), before);
}

// A file and a FIFO change places all the time: what was a file when it was looked at may be a FIFO
// when it is opened, which would block, and must never become a fork.
TEST_F(Files, NeitherBlocksNorOpensWhenAFifoTakesTheFilesPlace) {
  WriteFile(root + "/file", "x");
  mkfifo((root + "/fifo").c_str(), 0600);
  FSRef ref;
  ASSERT_EQ(Resolve(root + "/file", &ref), noErr);
  std::atomic<bool> over{false};
  std::thread swapper([&] {
    while (!over) renameat2(0, ref.path, 0, (root + "/fifo").c_str(), RENAME_EXCHANGE);
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
}

TEST_F(Files, ReportsThePermissionThatIsMissing) {
  WriteFile(root + "/secret", "x");
  WriteFile(root + "/fixed", "x");
  mkdir((root + "/closed").c_str(), 0700);
  WriteFile(root + "/closed/file", "x");
  chmod((root + "/secret").c_str(), 0000);
  chmod((root + "/fixed").c_str(), 0444);
  chmod(root.c_str(), 0555);
  if (geteuid() != 0) chmod((root + "/closed").c_str(), 0600);
  auto const work = [&] {
    if (geteuid() == 0 && !BecomeNobody()) return "no other user"s;
    FSRef ref;
    return Joined({Resolve(root + "/closed/file", &ref), Create(rootRef, u"new"),
                   Open(root + "/secret", fsCurPerm, &fork),
                   Open(root + "/fixed", fsRdWrPerm, &fork), fork,
                   Open(root + "/fixed", fsCurPerm, &fork),
                   FSWriteFork(fork, 0, 0, 1, "y", nullptr), FSSetForkSize(fork, fsFromStart, 0)});
  };
  EXPECT_EQ(InChild(work), "-54 -54 -54 -54 0 0 -54 -54");
  chmod((root + "/closed").c_str(), 0700);
  chmod(root.c_str(), 0700);
}

TEST_F(Files, ReportsAVolumeThatIsReadOnly) {
  WriteFile(root + "/file", "x");
  std::string const text = InChild([&] {
    if (!OwnMountTable() || !MountReadOnly(root)) return "no mount"s;
    return Joined({Create(rootRef, u"new"), Open(root + "/file", fsWrPerm, &fork),
                   Open(root + "/file", fsCurPerm, &fork)});
  });
  if (text == "no mount") GTEST_SKIP() << "this user may not mount";
  EXPECT_EQ(text, "-44 -44 0");
}

TEST_F(Files, SurvivesRunningOutOfDescriptorsAndMemory) {
  WriteFile(root + "/file", "x");
  std::string const path = root + "/file";
  FSRef ref;
  ASSERT_EQ(Resolve(path, &ref), noErr);
  auto const useUpDescriptors = [&] {
    rlimit const limit = {64, 64};
    setrlimit(RLIMIT_NOFILE, &limit);
    OSErr status = noErr;
    while ((status = Open(path, fsRdPerm, &fork)) == noErr) {
    }
    FSIORefNum const last = fork;
    return Joined({status, Create(rootRef, u"new"), FSCloseFork(last), Open(path, fsRdPerm, &fork),
                   fork - last});
  };
  EXPECT_EQ(InChild(useUpDescriptors), "-42 -42 0 0 0");
  EXPECT_FALSE(std::filesystem::exists(root + "/new"));
  // Beyond the descriptors of other tests, opening needs memory for the mark.
  auto const useUpMemory = [&] {
    for (int last = 0; last >= 0 && last < 767;) last = dup(STDERR_FILENO);
    long const before = OpenDescriptors();
    auto failing = std::make_optional<FailingAllocation>(1);
    OSErr const status = FSOpenFork(&ref, 0, nullptr, fsRdPerm, &fork);
    failing.reset();
    return Joined({status, OpenDescriptors() - before, Open(path, fsRdPerm, &fork)});
  };
  EXPECT_EQ(InChild(useUpMemory), "-108 0 0");
}

TEST_F(Files, TransfersAtEveryModeAndKeepsTheMark) {
  WriteFile(root + "/file", "0123456789");
  ASSERT_EQ(Open(root + "/file", fsRdWrPerm, &fork), noErr);
  EXPECT_GT(fork, 0);
  struct {
    UInt16 mode;
    SInt64 offset;
    ByteCount count;
    OSErr status;
    char const* bytes;
    SInt64 mark;
  } const cases[] = {
      {fsAtMark, 5, 3, noErr, "012", 3},    {fsFromMark, 2, 2, noErr, "56", 7},
      {fsFromMark, -3, 1, noErr, "4", 5},   {fsFromLEOF, -2, 1, noErr, "8", 9},
      {fsAtMark, 0, 4, eofErr, "9", 10},    {fsAtMark, 0, 0, noErr, "", 10},
      {fsFromStart, 4, 0, noErr, "", 4},    {fsFromStart, 20, 1, eofErr, "", 20},
      {fsFromStart, -1, 1, posErr, "", 20}, {fsFromMark, -21, 1, posErr, "", 20},
      {fsFromLEOF, -11, 0, posErr, "", 20}, {fsFromMark, LLONG_MAX, 1, posErr, "", 20},
      {4, 0, 1, paramErr, "", 20},          {fsFromStart, LLONG_MAX, 1, eofErr, "", LLONG_MAX}};
  for (auto const& c : cases) {
    std::string bytes;
    EXPECT_EQ(Read(fork, c.mode, c.offset, c.count, &bytes), c.status) << c.mode << " " << c.offset;
    EXPECT_EQ(bytes, c.bytes) << c.mode << " " << c.offset;
    EXPECT_EQ(Mark(fork), c.mark) << c.mode << " " << c.offset;
  }
  // At the end as it is by then, whoever has moved it.
  FSIORefNum other = 0;
  ASSERT_EQ(Open(root + "/file", fsRdWrPerm, &other), noErr);
  EXPECT_EQ(Write(fork, fsFromLEOF, 0, "A"), "0 1");
  EXPECT_EQ(Write(other, fsFromLEOF, 0, "B"), "0 1");
  EXPECT_EQ(Mark(fork), 11);
  EXPECT_EQ(Write(fork, fsFromLEOF, 0, ""), "0 0");
  EXPECT_EQ(FSCloseFork(other), noErr);
  EXPECT_EQ(Write(fork, fsFromMark, 1, "C"), "0 1");
  EXPECT_EQ(Write(fork, fsFromStart, 1, "xy"), "0 2");
  EXPECT_EQ(Write(fork, fsFromMark, -4, "n"), "-40 0");
  EXPECT_EQ(Write(fork, fsAtMark, -9, "z"), "0 1");
  EXPECT_EQ(Mark(fork), 4);
  EXPECT_EQ(ReadFile(root + "/file"), std::string("0xyz456789AB\0C", 14));
}

// Red when an append fails there, goes over another's, or turns what follows into appends.
TEST_F(Files, AppendsWhereTheKernelHasNoCallForIt) {
  WriteFile(root + "/file", "0123");
  std::string const told = InChild([&] {
    FSIORefNum other = 0;
    if (!DenyCall(SYS_pwritev2, ENOSYS)) return "no call can be denied"s;
    std::string done = Joined({Open(root + "/file", fsRdWrPerm, &fork)});
    done += " " + Joined({Open(root + "/file", fsRdWrPerm, &other)});
    done += ", " + Write(fork, fsFromLEOF, 0, "A");
    done += ", " + Write(other, fsFromLEOF, 0, "BC");
    done += ", " + Joined({Mark(fork), Mark(other)});
    return done + ", " + Write(fork, fsFromStart, 1, "x");
  });
  if (told == "no call can be denied") GTEST_SKIP() << told;
  EXPECT_EQ(told, "0 0, 0 1, 0 2, 5 7, 0 1");
  EXPECT_EQ(ReadFile(root + "/file"), "0x23ABC");
}

TEST_F(Files, ResizesAndPullsTheMarkBackToTheEnd) {
  WriteFile(root + "/file", "0123456789");
  ASSERT_EQ(Open(root + "/file", fsCurPerm, &fork), noErr);
  struct {
    SInt64 markBefore;
    UInt16 mode;
    SInt64 offset;
    OSErr status;
    SInt64 size, markAfter;
  } const cases[] = {
      {4, fsFromStart, 20, noErr, 20, 4}, {30, fsFromStart, 25, noErr, 25, 25},
      {9, fsFromStart, 6, noErr, 6, 6},   {6, fsFromLEOF, -1, noErr, 5, 5},
      {2, fsFromMark, 1, noErr, 3, 2},    {2, fsAtMark, 9, noErr, 2, 2},
      {1, fsFromStart, -1, posErr, 2, 1}, {1, fsFromLEOF, -3, posErr, 2, 1},
      {1, 9, 0, paramErr, 2, 1},          {1, fsFromStart, LLONG_MAX, dskFulErr, 2, 1}};
  for (auto const& c : cases) {
    SInt64 size = -1;
    EXPECT_EQ(FSSetForkPosition(fork, fsFromStart, c.markBefore), noErr);
    EXPECT_EQ(FSSetForkSize(fork, c.mode, c.offset), c.status) << c.mode << " " << c.offset;
    EXPECT_EQ(FSGetForkSize(fork, &size), noErr);
    EXPECT_EQ(size, c.size) << c.mode << " " << c.offset;
    EXPECT_EQ(Mark(fork), c.markAfter) << c.mode << " " << c.offset;
  }
  EXPECT_EQ(FSSetForkPosition(fork, fsFromLEOF, 3), noErr);
  EXPECT_EQ(FSSetForkPosition(fork, fsFromMark, -6), posErr);
  EXPECT_EQ(FSSetForkPosition(fork, fsAtMark, 9), noErr);
  EXPECT_EQ(Mark(fork), 5);
}

TEST_F(Files, KeepsToThePermissionsAndToTheProcess) {
  WriteFile(root + "/file", "abc");
  FSIORefNum reader = 0;
  FSIORefNum writer = 0;
  ASSERT_EQ(Open(root + "/file", fsRdPerm, &reader), noErr);
  ASSERT_EQ(Open(root + "/file", fsWrPerm, &writer), noErr);
  std::string bytes;
  EXPECT_EQ(Read(writer, fsAtMark, 0, 1, &bytes), permErr);
  EXPECT_EQ(bytes, "");
  EXPECT_EQ(Write(reader, fsAtMark, 0, "x"), "-54 0");
  EXPECT_EQ(Write(reader, fsFromLEOF, 0, "x"), "-54 0");
  EXPECT_EQ(Mark(reader), 3);
  EXPECT_EQ(FSSetForkSize(reader, fsFromStart, 0), permErr);
  EXPECT_EQ(ReadFile(root + "/file"), "abc");
  int inherited = 0;
  for (auto const& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    if (read_symlink(entry.path(), error) != root + "/file") continue;
    inherited += (fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC) == 0;
  }
  EXPECT_EQ(inherited, 0);
  EXPECT_EQ(FSCloseFork(reader), noErr);
  EXPECT_EQ(FSCloseFork(writer), noErr);

  for (FSIORefNum const number : {reader, writer, 0, -1, INT_MIN, INT_MAX, 1 << 20}) {
    SInt64 value = 0;
    EXPECT_EQ(FSGetForkSize(number, &value), rfNumErr) << number;
    EXPECT_EQ(FSSetForkSize(number, fsFromStart, 0), rfNumErr);
    EXPECT_EQ(FSGetForkPosition(number, &value), rfNumErr);
    EXPECT_EQ(FSSetForkPosition(number, fsFromStart, 0), rfNumErr);
    EXPECT_EQ(Read(number, fsAtMark, 0, 3, &bytes), rfNumErr);
    EXPECT_EQ(bytes, "");
    EXPECT_EQ(Write(number, fsAtMark, 0, "x"), "-51 0");
    EXPECT_EQ(Write(number, fsFromLEOF, 0, "x"), "-51 0");
    EXPECT_EQ(FSCloseFork(number), rfNumErr);
  }
}

TEST_F(Files, CarriesTransfersOnToTheLastByteThatFits) {
  std::string bytes;
  ASSERT_EQ(Open("/dev/full", fsRdWrPerm, &fork), noErr);
  EXPECT_EQ(Write(fork, fsAtMark, 0, "x"), "-34 0");
  EXPECT_EQ(Read(fork, fsFromStart, 7, 3, &bytes), noErr);
  EXPECT_EQ(bytes, std::string(3, '\0'));
  EXPECT_EQ(FSCloseFork(fork), noErr);

  ASSERT_EQ(Open("/dev/null", fsWrPerm, &fork), noErr);
  EXPECT_EQ(Write(fork, fsFromStart, LLONG_MAX - 9, std::string(20, 'x')), "-34 9");
  EXPECT_EQ(Mark(fork), LLONG_MAX);
  EXPECT_EQ(FSSetForkSize(fork, fsFromStart, 0), paramErr);
  EXPECT_EQ(FSCloseFork(fork), noErr);

  WriteFile(root + "/file", "");
  auto const limitSize = [&] {
    signal(SIGXFSZ, SIG_IGN);
    rlimit const limit = {1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    if (Open(root + "/file", fsRdWrPerm, &fork) != noErr) return "no fork"s;
    std::string const written = Write(fork, fsFromStart, 400, std::string(700, 'x'));
    return written + " " +
           Joined({Mark(fork), FSSetForkSize(fork, fsFromStart, 1001),
                   FSSetForkSize(fork, fsFromStart, 1000)});
  };
  EXPECT_EQ(InChild(limitSize), "-34 600 1000 -34 0");
}

// The device stops at each signal, behind some of the bytes.
TEST_F(Files, CarriesOnWhatSignalsInterrupt) {
  ASSERT_EQ(Open("/dev/zero", fsRdPerm, &fork), noErr);
  struct sigaction action = {};
  struct sigaction former;
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, &former);
  itimerval const often = {{0, 200}, {0, 200}};
  setitimer(ITIMER_REAL, &often, nullptr);
  ByteCount const count = 64 << 20;
  std::string bytes;
  OSErr const status = Read(fork, fsAtMark, 0, count, &bytes);
  itimerval const never = {};
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &former, nullptr);
  EXPECT_EQ(status, noErr);
  EXPECT_TRUE(bytes == std::string(count, '\0'));
}

TEST_F(Files, SharesTheTableBetweenThreads) {
  long const before = OpenDescriptors();
  std::string faults[8];
  OnThreads(8, [&](int t) {
    std::string const path = root + "/" + to_string(t);
    WriteFile(path, "");
    for (int round = 0; round < 200; ++round) {
      FSIORefNum first = 0;
      FSIORefNum second = 0;
      std::string const bytes = to_string(t) + ":" + to_string(round);
      std::string back;
      if (Open(path, fsRdWrPerm, &first) != noErr || Open(path, fsRdPerm, &second) != noErr ||
          first == second || FSSetForkPosition(second, fsFromStart, t) != noErr ||
          Write(first, fsAtMark, 0, bytes) != "0 " + to_string(bytes.size()) ||
          Read(second, fsFromMark, -t, bytes.size(), &back) != noErr || back != bytes ||
          FSCloseFork(first) != noErr || FSCloseFork(second) != noErr) {
        faults[t] = bytes + " became " + back;
      }
    }
  });
  for (std::string const& fault : faults) EXPECT_EQ(fault, "");
  EXPECT_EQ(OpenDescriptors(), before);
}
