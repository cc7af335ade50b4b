#include <CoreServices/Files.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <optional>
#include <thread>
#include <tuple>

#include "platform/linux/FileNames.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/FailingSystemCall.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using std::to_string;
using namespace std::string_literals;

OSStatus Resolve(std::string const& path, FSRef* ref) {
  return FSPathMakeRef(reinterpret_cast<UInt8 const*>(path.c_str()), ref, nullptr);
}

OSErr Create(FSRef const& parent, std::u16string const& name, FSRef* created = nullptr,
             bool isDirectory = false) {
  auto const* const units = reinterpret_cast<UniChar const*>(name.data());
  return isDirectory ? FSCreateDirectoryUnicode(&parent, name.size(), units, kFSCatInfoNone,
                                                nullptr, created, nullptr, nullptr)
                     : FSCreateFileUnicode(&parent, name.size(), units, kFSCatInfoNone, nullptr,
                                           created, nullptr);
}

OSStatus Open(std::string const& path, SInt8 permissions, FSIORefNum* fork) {
  FSRef ref;
  OSStatus const status = Resolve(path, &ref);
  return status == noErr ? FSOpenFork(&ref, 0, nullptr, permissions, fork) : status;
}

// Reads as many bytes as are given ('r'), writes them ('w') or resizes ('s'), and tells what came
// of it, with the bytes read, their number or the size: "status what@mark".
std::string Do(FSIORefNum fork, char step, UInt16 mode, SInt64 offset, std::string bytes = "") {
  ByteCount actual = 99;
  SInt64 size = -99, mark = -99;
  OSErr status = noErr;
  if (step == 'r') {
    status = FSReadFork(fork, mode, offset, bytes.size(), bytes.data(), &actual);
    bytes.resize(actual);
  } else if (step == 'w') {
    status = FSWriteFork(fork, mode, offset, bytes.size(), bytes.data(), &actual);
    bytes = to_string(actual);
  } else {
    status = FSSetForkSize(fork, mode, offset);
    FSGetForkSize(fork, &size);
    bytes = to_string(size);
  }
  FSGetForkPosition(fork, &mark);
  return to_string(status) + " " + bytes + "@" + to_string(mark);
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
  fs::create_symlink("dir", At("to-dir"));
  // A path, and what it leads to or the status that it fails with.
  std::pair<std::string, std::string> const cases[] = {{dir + "/.", dir},
                                                       {At("to-dir/.."), root},
                                                       {At(slashes + "file"), At(slashes + "file")},
                                                       {At(slashes + "/file"), "-37"},
                                                       {"./" + slashes + "dir", "-37"},
                                                       {file + "/x", "-120"},
                                                       {"", "-43"}};
  fs::path const before = fs::current_path();
  fs::current_path(root);
  for (auto const& [path, expected] : cases) {
    FSRef ref = {};
    OSStatus const status = Resolve(path, &ref);
    EXPECT_EQ(ref.path + (status == noErr ? "" : to_string(status)), expected) << path;
  }
  fs::current_path(before);
}

TEST_F(Files, CreatesUnderExactlyTheNameGiven) {
  std::u16string const umlauts(127, u'\u00e4');
  std::pair<std::u16string, std::string> const good[] = {
      {u"12/30 \xD83C\xDFAC", "12:30 \U0001F3AC"}, {umlauts + u"x", Utf8(Make(umlauts)) + "x"}};
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
                                       std::u16string(256, u'n'), umlauts + u"xx"}) {
      EXPECT_EQ(Create(rootRef, name, nullptr, isDirectory), bdNamErr) << name.size();
    }
  }
  umask(mask);
  EXPECT_TRUE(fs::is_empty(root));

  FSRef parent = rootRef;
  strcat(parent.path, std::string(4095 - root.size() - 1, '/').c_str());
  EXPECT_EQ(Create(parent, u"ab"), bdNamErr);
  std::size_t length = 4094;
  EXPECT_EQ(AppendToPath(&parent, &length, "ab", 2), bdNamErr) << "without room for its end";
  EXPECT_EQ(Create(parent, u"a"), noErr);
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
    SInt64 size = 1;
    OSErr const status = FSOpenFork(&ref, 0, nullptr, round % 2 == 0 ? fsRdPerm : fsWrPerm, &fork);
    if (status == noErr) FSGetForkSize(fork, &size);
    faults += status == noErr ? size != 1 || FSCloseFork(fork) != noErr : status != opWrErr;
  }
  EXPECT_EQ(faults, 0);
  over = true;
  swapper.join();
}

TEST_F(Files, SurvivesRunningOutOfMemory) {
  WriteFile(file, "x");
  FSRef ref;
  ASSERT_EQ(Resolve(file, &ref), noErr);
  auto const useUp = [&] {
    // Beyond the descriptors of other tests, opening needs memory for the mark.
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
  EXPECT_EQ(ChecksInChild(useUp), "");
}

TEST_F(Files, TransfersKeepTheMarkAndAppendBehindAll) {
  OpenFile("0123456789");
  std::tuple<char, UInt16, SInt64, std::string, std::string> const steps[] = {
      {'r', fsFromStart, 1, "##", "0 12@3"},
      {'w', fsAtMark, -9, "yz", "0 2@5"},
      {'r', fsFromStart, 8, "###", "-39 89@10"},
      {'r', fsFromStart, -1, "#", "-40 @10"},
      {'r', fsFromStart, LLONG_MAX, "#", "-39 @" + to_string(LLONG_MAX)},
      {'w', fsFromLEOF, 0, "A", "0 1@11"},
      {'o', fsFromLEOF, 0, "B", "0 1@12"},  // by another that knows nothing of the first
      {'w', fsAtMark, 0, "", "0 0@11"},
      {'w', fsFromLEOF, 0, "", "0 0@12"},
      {'s', fsFromStart, 14, "", "0 14@12"},
      {'s', fsFromStart, 11, "", "0 11@11"},  // back to the end
      {'s', fsFromStart, LLONG_MAX, "", "-34 11@11"}};
  FSIORefNum other = 0;
  ASSERT_EQ(Open(file, fsRdWrPerm, &other), noErr);
  for (auto const& [step, mode, offset, bytes, expected] : steps) {
    bool const isOther = step == 'o';
    EXPECT_EQ(Do(isOther ? other : fork, isOther ? 'w' : step, mode, offset, bytes), expected);
  }
  EXPECT_EQ(FSCloseFork(other), noErr);
  EXPECT_EQ(ReadFile(file), "012yz56789A");
}

// Red when an append fails there, goes over another's, or turns what follows into appends.
TEST_F(Files, AppendsWhereTheKernelHasNoCallForIt) {
  OpenFile("0123");
  std::string const skipped = ChecksInChild([&] {
    FSIORefNum other = 0;
    EXPECT_EQ(Open(file, fsRdWrPerm, &other), noErr);
    if (!DenyCall(SYS_pwritev2, ENOSYS)) return "no call can be denied";
    EXPECT_EQ(Do(fork, 'w', fsFromLEOF, 0, "A"), "0 1@5");
    EXPECT_EQ(Do(other, 'w', fsFromLEOF, 0, "BC"), "0 2@7");
    EXPECT_EQ(Do(fork, 'w', fsFromStart, 1, "x"), "0 1@2");
    EXPECT_EQ(ReadFile(file), "0x23ABC");
    return "";
  });
  if (skipped == "no call can be denied") GTEST_SKIP() << skipped;
  EXPECT_EQ(skipped, "");
}

TEST_F(Files, KeepsToThePermissionsAndToTheProcess) {
  WriteFile(file, "abc");
  FSIORefNum reader = 0;
  ASSERT_EQ(Open(file, fsRdPerm, &reader), noErr);
  EXPECT_EQ(Do(reader, 'w', fsFromLEOF, 0, "x"), "-54 0@3");
  EXPECT_NE(fcntl(reader - 1, F_GETFD) & FD_CLOEXEC, 0) << "a program started inherits it";
  EXPECT_EQ(FSCloseFork(reader), noErr);
  for (FSIORefNum const number : {reader, 0, INT_MIN, INT_MAX, 1 << 20}) {
    EXPECT_EQ(Do(number, 'r', fsAtMark, 0, "#"), "-51 @-99") << number;
    EXPECT_EQ(Do(number, 'w', fsFromLEOF, 0, "x"), "-51 0@-99");
    EXPECT_EQ(Do(number, 's', fsFromStart, 0), "-51 -99@-99");
    EXPECT_EQ(FSCloseFork(number), rfNumErr);
  }
}

TEST_F(Files, CarriesTransfersOnToTheLastByteThatFits) {
  OpenFile("");
  auto const limitSize = [&] {
    signal(SIGXFSZ, SIG_IGN);
    rlimit const limit = {1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(Do(fork, 'w', fsFromStart, 400, std::string(700, 'x')), "-34 600@1000");
    EXPECT_EQ(Do(fork, 's', fsFromStart, 1001), "-34 1000@1000");
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
  std::string const zeroes(64 << 20, '\0');
  std::string const told = Do(fork, 'r', fsAtMark, 0, std::string(zeroes.size(), '#'));
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &former, nullptr);
  EXPECT_TRUE(told == "0 " + zeroes + "@" + to_string(zeroes.size()));
}
