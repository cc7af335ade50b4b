#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <random>
#include <sstream>
#include <thread>
#include <tuple>
#include <vector>

#include "QuillmereLib/streams/CUFileStream.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/LoggingLock.h"
#include "tests/support/Mounts.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Threads.h"

namespace {

namespace fs = std::filesystem;

std::string const kContents = "0123456789abcdefghij";

struct OpenFileStream : CUFileStream {
  using CUFileStream::CUFileStream;
  using CUStream::streamLock;
};

// Takes the steps and tells their results, with "-" for nothing read: "r 4 c -2" reads 4 bytes, 2
// before the current position, "w text b 0" writes, "s b 9" seeks, "l 5" sets the length, "c"
// closes; "p" tells the position, "L" the length, "?" whether the file is open.
std::string Do(CUFileStream& stream, std::string const& steps) {
  std::istringstream in(steps);
  std::ostringstream out;
  char origin = 'b';
  unsigned long long size = 0;
  long long offset = 0;
  std::string text;
  auto const from = [&origin] {  // anything but the three is an unknown origin
    return static_cast<CUStream_Seek_Origin>(std::string("bce").find(origin) & 0xFF);
  };
  for (char step; in >> step;) {
    if (step == 'w') in >> text;
    if (step == 'r') in >> size;
    if (step == 'r' || step == 'w' || step == 's') in >> origin >> offset;
    if (step == 'r') text = ReadText(stream, size, offset, from());
    if (step == 'r') out << (text.empty() ? "-" : text);
    if (step == 'w') out << WriteText(stream, text, offset, from());
    if (step == 's') out << stream.Seek(offset, from());
    if (step == 'l' && in >> size) stream.SetLength(size);
    if (step == 'c') stream.Close();
    if (step == 'p') out << stream.Position();
    if (step == 'L') out << stream.Length();
    if (step == '?') out << (stream.IsOSFileHandleValid() ? "open" : "closed");
    if (step != 'l' && step != 'c') out << ' ';
  }
  return out.str();
}

// A file of its own with twenty bytes, and a stream over it.
class CUFileStreamTest : public ::testing::Test {
 protected:
  OpenFileStream& Open(CUStream_FileAccess access = CUStream_FileAccess_ReadWrite,
                       CUStream_FileMode mode = CUStream_FileMode_Open) {
    m_stream = nullptr;
    WriteFile(Path, kContents);
    m_stream = new OpenFileStream(Make(Path).Get(), mode, access, true);
    return *m_stream;
  }

  TemporaryFolder m_folder;
  CUSharedPtr<OpenFileStream> m_stream;
  std::string const Folder = m_folder.Path();
  std::string const Path = Folder + "/file";
};

// "rw3@0": readable, writable, of length 3, at position 0; "half" when only the file is open.
std::string StateOf(CUFileStream& stream) {
  std::string const may = std::string(stream.CanRead() ? "r" : "") + (stream.CanWrite() ? "w" : "");
  if (!stream.CanSeek()) return may + (stream.IsOSFileHandleValid() ? "half" : "closed");
  return may + std::to_string(stream.Length()) + "@" + std::to_string(stream.Position());
}

// The state, or the code that is thrown; and whether a descriptor stays open.
std::string OpenOnce(CUSharedPtr<CUStringMac> path, unsigned int mode, unsigned int access,
                     bool noThrow) {
  long const descriptors = OpenDescriptors();
  std::string result;
  try {
    CUFileStream stream(path, static_cast<CUStream_FileMode>(mode),
                        static_cast<CUStream_FileAccess>(access), noThrow);
    result = StateOf(stream);
  } catch (unsigned int code) {
    result = std::to_string(code);
  }
  return OpenDescriptors() == descriptors ? result : result + "!leak";
}

// A line for each mode of the outcomes with each access: read, read and write, write, and one that
// is unknown. `contents` is what is at `path` before an opening: a text, "-" for nothing, "=" for
// what is there. The form that does not throw is told where it is not as expected, and a failure
// that makes or removes the file.
std::string Outcomes(std::string const& path, std::string const& contents) {
  std::string outcomes;
  for (unsigned int mode = 0; mode <= 6; ++mode) {
    for (unsigned int access : {0u, 1u, 2u, 7u}) {
      std::string results[2];
      for (bool noThrow : {false, true}) {
        if (contents == "-") unlink(path.c_str());
        if (contents.size() > 1) WriteFile(path, contents);
        results[noThrow] = OpenOnce(Make(path), mode, access, noThrow);
      }
      bool const failed = results[0].find('@') == std::string::npos;
      outcomes += results[0];
      if (results[1] != (failed ? "closed" : results[0])) outcomes += "/" + results[1];
      std::error_code tooLong;
      if (failed && contents == "-" && fs::exists(path, tooLong)) outcomes += "!file";
      outcomes += access == 7 ? "\n" : " ";
    }
  }
  return outcomes;
}

// The modes: append, create, create new, open, open or create, truncate, unknown.
char const kOfMissing[] =
    "4 rw0@0 w0@0 0@0\n4 rw0@0 w0@0 0@0\nr0@0 rw0@0 w0@0 0@0\n9 9 9 9\nr0@0 rw0@0 w0@0 0@0\n"
    "4 9 9 9\n4 4 4 4\n";
char const kOfFile[] =
    "4 rw3@3 w3@3 3@3\n4 rw0@0 w0@0 0@0\n4 4 4 4\nr3@0 rw3@0 w3@0 3@0\nr3@0 rw3@0 w3@0 3@0\n"
    "4 rw0@0 w0@0 0@0\n4 4 4 4\n";
char const kOfDirectory[] = "5 5 5 5\n5 5 5 5\n5 5 5 5\n5 5 5 5\n5 5 5 5\n5 5 5 5\n5 5 5 5\n";
char const kOfNoCreating[] = "4 4 4 4\n4 4 4 4\n4 4 4 4\n9 9 9 9\n4 4 4 4\n4 9 9 9\n4 4 4 4\n";
char const kOfNoOpening[] = "4 4 4 4\n4 4 4 4\n4 4 4 4\n4 4 4 4\n4 4 4 4\n4 4 4 4\n4 4 4 4\n";
// An unknown access makes do with reading, but not for a cut. What fails to cut stays open: for
// good when it throws, else as a half-open stream.
char const kOfReadOnly[] =
    "4 4 4 3@3\n4 4 4 4!leak/half\n4 4 4 4\nr3@0 4 4 3@0\nr3@0 4 4 3@0\n4 4 4 4!leak/half\n"
    "4 4 4 4\n";

}  // namespace

// Red when Seek judges what only transfers judge, or a position is that of the system's mark.
TEST_F(CUFileStreamTest, TransfersMoveThePosition) {
  EXPECT_EQ(Do(Open(), "r 4 c 0 r 4 c 0 r 3 e -5 p w XY c -8 r 3 c 0 r 99 b 0 p r 9 c 0 r 5 x 0"),
            "0123 4567 fgh 18 2 cde 0123456789XYcdefghij 20 - - ");
  EXPECT_EQ(
      Do(Open(), "s b 5000 r 5 c 0 p s e -21 r 5 c 0 w x c 0 s c 7 s x 99 w z x 7 s b 8 r 2 c 0"),
      "5000 - 5000 -1 - 0 6 0 1 8 89 ");
  EXPECT_EQ(ReadFile(Path), "z" + kContents.substr(1)) << "an unknown origin writes at 0";
}

TEST_F(CUFileStreamTest, WritingBehindTheEndGrowsTheFileAndItsReadableRange) {
  OpenFileStream& stream = Open();
  EXPECT_EQ(stream.SetReadaleRange({4, 4}), 0u);
  EXPECT_EQ(Do(stream, "w XY b 0 r 99 b 6 r 1 b 3 w Z b 20 r 99 b 0"),
            "2 67 - 1 XY23456789abcdefghijZ ");
  EXPECT_EQ(Do(Open(), "w far b 5368709123 L r 9 c -2"), "3 5368709126 ar ");
  EXPECT_EQ(Do(Open(), "w 01234 b 100 L p r 9 b 103"), "5 105 105 34 ");
  EXPECT_EQ(ReadFile(Path), kContents + std::string(80, '\0') + "01234");
  EXPECT_EQ(Do(Open(), "s b 9 l 5 p r 9 b 0 w ! c 2"), "9 9 01234 1 ");
  EXPECT_EQ(ReadFile(Path), "01234" + std::string(2, '\0') + "!");
  EXPECT_EQ(Do(Open(CUStream_FileAccess_Write, CUStream_FileMode_Append), "w end c 0 w start b 0"),
            "3 5 ");
  EXPECT_EQ(ReadFile(Path), "start56789abcdefghijend");
  // Changes of others go unseen: the position follows what was asked for, not what came.
  Open();
  fs::resize_file(Path, 5);
  EXPECT_EQ(Do(*m_stream, "L r 20 b 0 p r 4 b 2 w x e -1"), "20 01234 20 234 1 ");
  EXPECT_EQ(ReadFile(Path), "01234" + std::string(14, '\0') + "x");
}

TEST_F(CUFileStreamTest, FailedTransfersGiveZeroAndKeepItOpen) {
  EXPECT_EQ(Do(Open(CUStream_FileAccess_Read), "w x b 0 r 2 b 0 ?"), "0 01 open ");
  // An end that wraps does not grow the file.
  EXPECT_EQ(Do(Open(CUStream_FileAccess_Write), "r 1 b 0 w xxxxx b -1 w x e -21 L ?"),
            "- 0 0 20 open ");
  EXPECT_EQ(Open().Read(nullptr, 1, 0, CUStream_Seek_Origin_Begin), 0u);
  EXPECT_EQ(Open().Write(nullptr, 1, 0, CUStream_Seek_Origin_Begin), 0u);
  EXPECT_EQ(ReadFile(Path), kContents);
}

// Red when a resize that fails is not seen, or a close keeps the descriptor.
TEST_F(CUFileStreamTest, FailedResizeClosesItAndItAnswersFromMemory) {
  long const descriptors = OpenDescriptors();
  for (char const* fail : {"l 9223372036854775808 w x b 0", "w x b -9223372036854775808",
                           "w xx b 9223372036854775807"}) {
    EXPECT_EQ(Do(Open(), "r 3 b 0 " + std::string(fail) + " ? p"), "012 0 closed 3 ") << fail;
    EXPECT_EQ(OpenDescriptors(), descriptors);
  }
  OpenFileStream& stream = Open();
  EXPECT_EQ(Do(stream, "r 7 b 0 c c r 1 b 0 w x b 0 s b 3 l 2 p L"), "0123456 - 0 7 7 20 ");
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_FALSE(stream.CanRead() || stream.CanWrite() || stream.CanSeek());
  EXPECT_EQ(stream.SetReadaleRange({0, 1}), 0x10001u);
  Open();
  Open(CUStream_FileAccess_Read, CUStream_FileMode_CreateNew);  // fails, and the first is closed
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(CUFileStreamTest, AssignmentResetsAndKeepsTheFileOpen) {
  OpenFileStream& stream = Open();
  static_cast<CUFileStream&>(stream) =
      CUFileStream(nullptr, CUStream_FileMode_Open, CUStream_FileAccess_Read, true);
  EXPECT_TRUE(stream.streamLock == nullptr);
  EXPECT_EQ(Do(stream, "L p r 3 b 0 w new b 0"), "0 0 - 3 ");
  EXPECT_EQ(ReadFile(Path), "new") << "the file is cut, whose length was taken for 0";
}

// Red when an operation forgets its lock, or leaves it held.
TEST_F(CUFileStreamTest, EveryOperationHoldsTheLock) {
  EventLog log;
  for (char const* const before : {"", "c "}) {
    for (char const* const step : {"r 1 b 0", "w x b 20", "s b 0", "p", "L", "l 20", "c"}) {
      OpenFileStream& stream = Open();
      Do(stream, before);
      stream.streamLock = new LoggingLock(log);
      Do(stream, step);
      stream.streamLock = nullptr;
      std::string const events = log.Take();
      EXPECT_EQ(events.rfind("lock", 0), 0u) << step;
      auto const count = [&](char c) { return std::count(events.begin(), events.end(), c); };
      EXPECT_EQ(count('u') * 2 + 1, count('l')) << events;
    }
  }
}

// Growing takes no space, and comes before the bytes go out.
TEST_F(CUFileStreamTest, FullDiskGivesZeroAndKeepsItOpen) {
  std::string const told = InChild([&]() -> std::string {
    if (!OwnMountTable() || !MountMemory(Folder)) return "no mount";
    CUFileStream stream(Make(Path).Get(), CUStream_FileMode_Create, CUStream_FileAccess_ReadWrite,
                        false);
    std::string steps = Do(stream, "l 8388608 ?");
    for (long long const offset : {0, 4, 0, 6}) {
      steps += std::to_string(WriteText(stream, std::string(1 << 19, 'x'), offset << 20)) + " ";
    }
    return steps + Do(stream, "w text b 7340032 L ? l 0 w text b 0");
  });
  if (told == "no mount") GTEST_SKIP() << "this user may not mount";
  EXPECT_EQ(told, "open 524288 524288 524288 0 0 8388608 open 4 ");
}

// Each block holds one letter throughout. Red when a transfer's seek and its bytes come apart.
TEST_F(CUFileStreamTest, PositionedTransfersOfThreadsStayWhole) {
  constexpr std::size_t kBlock = 700;
  CUFileStream& stream = Open(CUStream_FileAccess_ReadWrite, CUStream_FileMode_Truncate);
  stream.SetLength(kBlock * 20);
  std::atomic<int> torn{0};
  OnThreads(4, [&](int number) {
    std::mt19937 random(static_cast<unsigned int>(number));
    for (int round = 0; round < 1500; ++round) {
      std::vector<unsigned char> block(kBlock, static_cast<unsigned char>('a' + round % 26));
      auto const offset = static_cast<long long>(random() % 40 * kBlock);
      if (random() % 3 == 0) {
        torn += stream.Write(block.data(), kBlock, offset, CUStream_Seek_Origin_Begin) != kBlock;
      } else if (stream.Read(block.data(), kBlock, offset, CUStream_Seek_Origin_Begin) != 0) {
        torn += std::count(block.begin(), block.end(), block[0]) != kBlock;
      }
    }
  });
  EXPECT_EQ(torn, 0);
}

// Red when a transfer goes on with the number of a fork that another thread has closed.
TEST_F(CUFileStreamTest, ClosingMeetsTransfersOfOtherThreads) {
  long const descriptors = OpenDescriptors();
  for (int round = 0; round < 30; ++round) {
    CUFileStream& stream = Open();
    std::thread writer([&] {
      while (stream.CanWrite()) WriteText(stream, "text", 0);
    });
    EXPECT_EQ(Do(stream, "s b 0 c ?"), "0 closed ");
    writer.join();
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(CUFileStreamTest, OpensByTheTableOfModes) {
  std::string const base = Folder + "/";
  fs::create_directory(base + "directory");
  fs::create_symlink(base + "nowhere", base + "dangling");
  fs::create_symlink("target", base + "link");
  WriteFile(base + "plain", "abc");
  ASSERT_EQ(mkfifo((base + "fifo").c_str(), 0600), 0);
  std::tuple<std::string, std::string, std::vector<std::string>> const cases[] = {
      {kOfMissing, "-", {base + "new"}},
      {kOfFile, "abc", {base + "file", base + "link"}},
      {kOfDirectory, "=", {base + "directory", base + "directory/"}},
      {kOfNoOpening, "=", {base + "fifo"}},
      {kOfNoCreating,
       "=",
       {base + "dangling", base + "nowhere/new", base + "plain/new", base + "new/",
        base + std::string(256, 'n'), "no-slash"}}};
  for (auto const& [expected, contents, paths] : cases) {
    for (std::string const& path : paths) EXPECT_EQ(Outcomes(path, contents), expected) << path;
  }
  EXPECT_EQ(OpenOnce(nullptr, 1, 1, false) + OpenOnce(nullptr, 1, 1, true), "2closed");
  EXPECT_EQ(OpenOnce(Make("\xFF"), 1, 1, false), "1") << "the null string is empty";
}

TEST_F(CUFileStreamTest, DoesNotOpenWherePermissionsRefuse) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  fs::permissions(Folder, fs::perms(0755));
  std::string const base = Folder + "/";
  for (auto const& [name, permissions] : {std::pair("readable", 0444), {"closed", 0}}) {
    WriteFile(base + name, "abc");
    fs::permissions(base + name, fs::perms(permissions));
  }
  fs::create_directory(base + "open");
  fs::permissions(base + "open", fs::perms(0777));
  EXPECT_EQ(InChild([&] {
              if (!BecomeNobody()) return std::string("cannot become nobody");
              umask(0777);
              return Outcomes(base + "readable", "=") + Outcomes(base + "closed", "=") +
                     Outcomes(base + "new", "=") + OpenOnce(Make(base + "open/made"), 1, 1, true);
            }),
            std::string(kOfReadOnly) + kOfNoOpening + kOfNoCreating + "closed");
  EXPECT_TRUE(fs::exists(base + "open/made")) << "could be made and not opened";
}
