#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <random>
#include <sstream>
#include <thread>
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

std::string const kContents = "0123456789abcdefghij";
constexpr unsigned long long kMegabyte = 1ull << 20;

class OpenFileStream : public CUFileStream {
 public:
  using CUFileStream::CUFileStream;
  using CUStream::readableRange;
  using CUStream::streamLock;
};

// b, c and e stand for the three origins, anything else for one that is unknown.
CUStream_Seek_Origin OriginOf(char letter) {
  return static_cast<CUStream_Seek_Origin>(std::string("bce").find(letter) & 0xFF);
}

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
  for (char step; in >> step;) {
    if (step == 'r' && in >> size >> origin >> offset) {
      text = ReadText(stream, size, offset, OriginOf(origin));
      out << (text.empty() ? "-" : text);
    }
    if (step == 'w' && in >> text >> origin >> offset) {
      out << WriteText(stream, text, offset, OriginOf(origin));
    }
    if (step == 's' && in >> origin >> offset) out << stream.Seek(offset, OriginOf(origin));
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
  TemporaryFolder m_folder;
  CUSharedPtr<OpenFileStream> m_stream;

 protected:
  OpenFileStream& Open(CUStream_FileAccess access,
                       CUStream_FileMode mode = CUStream_FileMode_Open) {
    m_stream = nullptr;
    WriteFile(Path, kContents);
    m_stream = new OpenFileStream(Make(Path).Get(), mode, access, true);
    return *m_stream;
  }
  OpenFileStream& Open() { return Open(CUStream_FileAccess_ReadWrite); }

  std::string const Folder = m_folder.Path();
  std::string const Path = Folder + "/file";
};

}  // namespace

// Red when Seek judges what only transfers judge, or a position is that of the system's mark.
TEST_F(CUFileStreamTest, TransfersMoveThePosition) {
  EXPECT_EQ(Do(Open(), "r 4 c 0 r 4 c 0 r 3 e -5 p w XY c -8 r 3 c 0 r 99 b 0 p r 9 c 0 r 5 x 0"),
            "0123 4567 fgh 18 2 cde 0123456789XYcdefghij 20 - - ");
  EXPECT_EQ(
      Do(Open(), "s b 5000 r 5 c 0 p s e -21 r 5 c 0 w x c 0 s c 7 s x 99 w z x 7 s b 8 r 2 c 0"),
      "5000 - 5000 -1 - 0 6 0 1 8 89 ");
  EXPECT_EQ(ReadFile(Path), "z" + kContents.substr(1)) << "an unknown origin writes at 0";
  EXPECT_EQ(ReadText(Open(), ~0ull, 3), kContents.substr(3));
}

TEST_F(CUFileStreamTest, WritingBehindTheEndGrowsTheFile) {
  EXPECT_EQ(Do(Open(), "w 0123456789 b 100 L p r 9 b 108"), "10 110 110 89 ");
  EXPECT_EQ(ReadFile(Path), kContents + std::string(80, '\0') + "0123456789");
  EXPECT_EQ(Do(Open(), "s b 9 l 5 p r 9 b 0 w ! c 2"), "9 9 01234 1 ");
  EXPECT_EQ(ReadFile(Path), "01234" + std::string(2, '\0') + "!");
  EXPECT_EQ(Do(Open(CUStream_FileAccess_Write, CUStream_FileMode_Append), "w end c 0 w start b 0"),
            "3 5 ");
  EXPECT_EQ(ReadFile(Path), "start56789abcdefghijend");
}

TEST_F(CUFileStreamTest, ReadableRangeBoundsReadsAndGoesWithAResize) {
  OpenFileStream& stream = Open();
  EXPECT_EQ(stream.SetReadaleRange({4, 4}), 0u);
  EXPECT_EQ(Do(stream, "w XY b 0 r 99 b 6 r 1 b 3 w Z b 20 r 99 b 0"),
            "2 67 - 1 XY23456789abcdefghijZ ");
  OpenFileStream& writing = Open(CUStream_FileAccess_Write);
  EXPECT_EQ(Do(writing, "w 0123456789 e 0 L"), "10 30 ");
  EXPECT_EQ(writing.readableRange.length, 20u) << "a stream that only writes keeps its range";
}

TEST_F(CUFileStreamTest, FailedTransfersGiveZeroAndKeepItOpen) {
  OpenFileStream& reading = Open(CUStream_FileAccess_Read);
  EXPECT_EQ(reading.Read(nullptr, 1, 0, CUStream_Seek_Origin_Begin), 0u);
  EXPECT_EQ(Do(reading, "w x b 0 r 2 b 0 ?"), "0 01 open ");
  OpenFileStream& writing = Open(CUStream_FileAccess_Write);
  EXPECT_EQ(writing.Write(nullptr, 1, 0, CUStream_Seek_Origin_Begin), 0u);
  EXPECT_EQ(Do(writing, "r 1 b 0 w xxxxx b -1 w x e -21 L ?"), "- 0 0 20 open ")
      << "an end that wraps does not grow the file";
  EXPECT_EQ(ReadFile(Path), kContents);
}

// Red when a resize that fails is not seen, or a close keeps the descriptor.
TEST_F(CUFileStreamTest, FailedResizeClosesIt) {
  long const descriptors = OpenDescriptors();
  for (char const* fail : {"l 9223372036854775808 w x b 0", "w x b -9223372036854775808",
                           "w xx b 9223372036854775807"}) {
    EXPECT_EQ(Do(Open(), "r 3 b 0 " + std::string(fail) + " ? p"), "012 0 closed 3 ") << fail;
    EXPECT_EQ(OpenDescriptors(), descriptors);
  }
  EXPECT_EQ(Do(Open(CUStream_FileAccess_Read), "l 3 ?"), "closed ");
  CUFileStream device(Make("/dev/full").Get(), CUStream_FileMode_Open, CUStream_FileAccess_Write,
                      false);
  EXPECT_EQ(Do(device, "w x b 0 ?"), "0 closed ") << "a device cannot grow";
}

TEST_F(CUFileStreamTest, ClosedStreamAnswersFromMemory) {
  long const descriptors = OpenDescriptors();
  OpenFileStream& stream = Open();
  EXPECT_EQ(OpenDescriptors(), descriptors + 1);
  EXPECT_EQ(Do(stream, "r 7 b 0 c c r 1 b 0 w x b 0 s b 3 l 2 p L"), "0123456 - 0 7 7 20 ");
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_FALSE(stream.CanRead() || stream.CanWrite() || stream.CanSeek());
  EXPECT_EQ(stream.SetReadaleRange({0, 1}), 0x10001u);
  EXPECT_EQ(ReadFile(Path), kContents);
  Open();
  Open(CUStream_FileAccess_Read, CUStream_FileMode_CreateNew);
  EXPECT_EQ(OpenDescriptors(), descriptors) << "the destructor closes";
}

// The position follows what was asked for, not what came.
TEST_F(CUFileStreamTest, ChangesOfOthersGoUnseen) {
  OpenFileStream& stream = Open();
  std::filesystem::resize_file(Path, 5);
  EXPECT_EQ(Do(stream, "L r 20 b 0 p r 4 b 2 w x e -1"), "20 01234 20 234 1 ");
  EXPECT_EQ(ReadFile(Path), "01234" + std::string(14, '\0') + "x");
}

TEST_F(CUFileStreamTest, AssignmentResetsAndKeepsTheFileOpen) {
  OpenFileStream& stream = Open();
  EXPECT_EQ(Do(stream, "r 3 b 0"), "012 ");
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
      std::istringstream events(log.Take());
      EXPECT_EQ(events.str().rfind("lock", 0), 0u) << step;
      int depth = 0;
      for (std::string event; events >> event;) depth += event == "lock" ? 1 : -1;
      EXPECT_EQ(depth, 0) << step << ": " << events.str();
      stream.streamLock = nullptr;
      log.Take();
    }
  }
}

// Growing takes no space, and comes before the bytes go out.
TEST_F(CUFileStreamTest, FullDiskGivesZeroAndKeepsItOpen) {
  std::string const told = InChild([&]() -> std::string {
    if (!OwnMountTable() || !MountMemory(Folder)) return "no mount";
    auto const mode = CUStream_FileMode_Create;
    CUFileStream first(Make(Folder + "/first").Get(), mode, CUStream_FileAccess_ReadWrite, false);
    CUFileStream second(Make(Folder + "/second").Get(), mode, CUStream_FileAccess_Write, false);
    std::string steps = Do(first, "l 8388608 ?");
    std::string const block(kMegabyte / 2, 'x');
    for (long long const offset : {0, 4, 0, 6}) {
      steps += std::to_string(WriteText(first, block, offset << 20)) + " ";
    }
    steps += Do(second, "w text b 0 L ?");
    first.SetLength(0);
    return steps + Do(second, "w text b 0");
  });
  if (told == "no mount") GTEST_SKIP() << "this user may not mount";
  EXPECT_EQ(told, "open 524288 524288 524288 0 0 4 open 4 ");
}

TEST_F(CUFileStreamTest, OffsetsTake64Bits) {
  EXPECT_EQ(Do(Open(), "w far b 5368709123 p L r 9 c -2 s c 0 r 9 e -2"),
            "3 5368709126 5368709126 ar 5368709126 ar ");
  EXPECT_EQ(std::filesystem::file_size(Path), 5368709126u);
}

// Each block holds one letter throughout. Red when a transfer's seek and its bytes come apart.
TEST_F(CUFileStreamTest, PositionedTransfersOfThreadsStayWhole) {
  constexpr std::size_t kBlock = 700;
  CUFileStream& stream = Open();
  stream.SetLength(0);
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
      torn += stream.Length() % kBlock != 0;
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
    EXPECT_EQ(OpenDescriptors(), descriptors);
  }
}
