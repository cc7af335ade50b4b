// The contract of every stream, and the stream over memory.

#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/core/CUErrorContents.h"
#include "QuillmereLib/streams/CUMemoryStream.h"
#include "tests/support/CountedObject.h"
#include "tests/support/Files.h"
#include "tests/support/LoggingLock.h"
#include "tests/support/ShortStream.h"
#include "tests/support/ThrownCode.h"

namespace {

constexpr unsigned long long kMost = ~0ull;

// A stream whose fields are open, and which logs what it is asked to write.
class OpenStream : public CUStream {
 public:
  explicit OpenStream(unsigned long long length = 0) { streamLength = length; }
  bool CanRead() override { return Readable; }
  unsigned long long Write(unsigned char* buffer, unsigned long long size, long long offset,
                           CUStream_Seek_Origin origin) override {
    Log.Add("write:" + std::string(buffer, buffer + size) + ":" + std::to_string(offset) + ":" +
            std::to_string(origin));
    return size;
  }
  long long Seek(long long offset, CUStream_Seek_Origin origin) override {
    Log.Add("seek:" + std::to_string(offset) + ":" + std::to_string(origin));
    return offset;
  }

  using CUStream::readableRange;
  using CUStream::streamLength;
  using CUStream::streamLock;
  using CUStream::streamPosition;
  bool Readable = true;
  EventLog Log;
};

std::string Show(_CURange const& range) {
  return std::to_string(range.location) + "+" + std::to_string(range.length);
}

auto const kBegin = CUStream_Seek_Origin_Begin;
constexpr unsigned long long kHuge = 1ull << 62;

// How a slice of `source` fails: "unsigned 5", "contents 1"; "" when it does not.
std::string Failure(CUStream* source, _CURange range) {
  try {
    unsigned int const code = ThrownCode([&] { CUMemoryStream const stream(source, range); });
    return code == 0 ? "" : "unsigned " + std::to_string(code);
  } catch (_CUErrorContents code) {
    return "contents " + std::to_string(code);
  }
}

class OpenMemoryStream : public CUMemoryStream {
 public:
  using CUMemoryStream::CUMemoryStream;
  using CUMemoryStream::operator=;
  using CUStream::streamLock;
};

}  // namespace

TEST(CUStream, RefusesEverythingAsUnsignedInt) {
  CUStream stream;
  UInt8 byte = 1;
  CFHolder<CFDataRef> const data(CFDataCreate(nullptr, &byte, 1));
  std::function<void()> const operations[] = {[&] { stream.Read(&byte, 1, 0, kBegin); },
                                              [&] { stream.Write(&byte, 1, 0, kBegin); },
                                              [&] { stream.Seek(0, kBegin); },
                                              [&] { stream.SetLength(0); },
                                              [&] { stream.Position(); },
                                              [&] { stream.SetPosition(0); },
                                              [&] { stream.WriteCFData(data.Get(), 0, kBegin); }};
  for (auto const& operation : operations) {
    EXPECT_EQ(ThrownCode(operation), 5u) << "operation " << &operation - operations;
  }
  EXPECT_FALSE(stream.CanRead() || stream.CanWrite() || stream.CanSeek());
}

TEST(CUStream, ReadableRangeIsTakenOrRefused) {
  _CURange const wraps = {kMost, 101};  // to 100
  _CURange const wrapsNowhere = {CURange_NoLocation, kMost - CURange_NoLocation + 1};
  _CURange const taken[] = {{0, 100}, {100, 0}, {30, 70}, wraps, {1, kMost}};
  _CURange const refused[] = {{0, 101},     {101, 0},   {30, 71},    {CURange_NoLocation, 0},
                              {kMost, 102}, {0, kMost}, wrapsNowhere};
  OpenStream stream(100);
  for (_CURange const& range : taken) {
    EXPECT_EQ(stream.SetReadaleRange(range), 0u) << Show(range);
    EXPECT_EQ(Show(stream.readableRange), Show(range));
  }
  for (_CURange const& range : refused) {
    EXPECT_EQ(stream.SetReadaleRange(range), 0x10001u) << Show(range);
    EXPECT_EQ(Show(stream.readableRange), Show(taken[4]));
  }
  stream.ResetReadaleRange();
  EXPECT_EQ(Show(stream.readableRange), "0+100");
  stream.Readable = false;
  EXPECT_EQ(stream.SetReadaleRange({0, 10}), 0x10001u);
  stream.ResetReadaleRange();
  EXPECT_EQ(Show(stream.readableRange), "0+100");
}

// Red when anything outside the range is given, or a request's own end wraps.
TEST(CUStream, CalcReadRangeCutsTheFarEndOnly) {
  auto const current = CUStream_Seek_Origin_Current;  // 12
  auto const end = CUStream_Seek_Origin_End;          // 100
  auto const unknown = static_cast<CUStream_Seek_Origin>(3);
  long long const least = static_cast<long long>(1ull << 63);
  _CURange const narrow = {10, 20}, all = {0, kMost}, wraps = {kMost, 101};
  std::string const rest = "1+" + std::to_string(kMost - 1);
  struct {
    _CURange range;
    unsigned long long size;
    long long offset;
    CUStream_Seek_Origin origin;
    std::string expected;
  } const cases[] = {{narrow, 5, 9, kBegin, "0+0"},     {narrow, 5, 10, kBegin, "10+5"},
                     {narrow, 100, 25, kBegin, "25+5"}, {narrow, 1, 29, kBegin, "29+1"},
                     {narrow, 1, 30, kBegin, "0+0"},    {narrow, 0, 15, kBegin, "0+0"},
                     {narrow, 3, 0, current, "12+3"},   {narrow, 3, -2, current, "10+3"},
                     {narrow, 3, -13, current, "0+0"},  {narrow, 9, -75, end, "25+5"},
                     {narrow, 9, -101, end, "0+0"},     {narrow, 9, 0, end, "0+0"},
                     {narrow, 9, least, kBegin, "0+0"}, {narrow, kMost, 15, kBegin, "15+15"},
                     {narrow, 5, 15, unknown, "0+0"},   {narrow, kMost - 14, 15, kBegin, "15+15"},
                     {{0, 0}, 5, 0, kBegin, "0+0"},     {wraps, 5, -1, kBegin, "0+0"},
                     {wraps, 5, 5, kBegin, "0+0"},      {all, kMost, 1, kBegin, rest}};
  for (auto const& [range, size, offset, origin, expected] : cases) {
    OpenStream stream(100);
    stream.streamPosition = 12;
    stream.readableRange = range;
    EXPECT_EQ(Show(stream.CalcReadRange(size, offset, origin)), expected)
        << Show(range) << " size " << size << " offset " << offset << " origin " << origin;
  }
}

TEST(CUStream, AssignmentResetsTheTarget) {
  OpenStream const source(100);
  OpenStream target(50);
  target.streamPosition = 3;
  target.readableRange = {4, 5};
  EXPECT_EQ(&(static_cast<CUStream&>(target) = source), &target);
  EXPECT_EQ(Show(target.readableRange), "0+0");
  EXPECT_EQ(target.Length() + target.streamPosition, 0u);
  EXPECT_TRUE(target.streamLock == nullptr);
  EXPECT_EQ(target.SetReadaleRange({0, 0}), 0u) << "works on without a lock";
}

TEST(CUStream, WritesDataObjectsUnderItsLock) {
  OpenStream stream(100);
  stream.streamLock = new LoggingLock(stream.Log);
  UInt8 const bytes[] = {'a', 'b', 'c'};
  CFHolder<CFDataRef> const data(CFDataCreate(nullptr, bytes, 3));
  EXPECT_EQ(stream.WriteCFData(data.Get(), -4, CUStream_Seek_Origin_End), 3u);
  EXPECT_EQ(stream.WriteCFData(nullptr, 0, CUStream_Seek_Origin_End), 0u);
  EXPECT_EQ(stream.Log.Take(), "lock write:abc:-4:2 unlock lock unlock");
  stream.ResetReadaleRange();
  EXPECT_EQ(stream.Log.Take(), "lock lock unlock unlock");
  stream.SetPosition(5);
  EXPECT_EQ(stream.Log.Take(), "seek:5:0");
  stream.streamLock = nullptr;
}

TEST(CUMemoryStream, ReadsWithinItsRangeAndStaysInPlace) {
  char text[] = "0123456789";
  CUMemoryStream stream(text, 10, true);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(ReadText(stream, 3, 0, CUStream_Seek_Origin_Current), "012");
  }
  EXPECT_EQ(ReadText(stream, ~0ull, -3, CUStream_Seek_Origin_End), "789");
  EXPECT_EQ(ReadText(stream, 5, 10), "");
  EXPECT_EQ(stream.Read(nullptr, 5, 0, kBegin), 0u);
  EXPECT_EQ(stream.SetReadaleRange({4, 4}), 0u);
  EXPECT_EQ(ReadText(stream, 99, 6), "67");
  EXPECT_EQ(ReadText(stream, 99, 3), "");
  EXPECT_THROW(stream.Position(), unsigned int);
}

TEST(CUMemoryStream, OwnsACopyAndBorrowsInPlace) {
  char text[] = "abc";
  CUMemoryStream copy(text, 3, false), inPlace(text, 3, true);
  text[0] = 'x';
  EXPECT_EQ(ReadText(copy, 3, 0), "abc");
  inPlace.UnInit();
  EXPECT_EQ(ReadText(inPlace, 3, 0), "xbc");
  copy.UnInit();
  EXPECT_FALSE(copy.CanRead());
  EXPECT_EQ(copy.Length(), 3u);
  EXPECT_EQ(ReadText(copy, 3, 0), "");
  ASSERT_NE(copy.InitByMemorySize(2), nullptr);
  static_cast<char*>(copy.GetPtr())[0] = 'y';
  EXPECT_EQ(ReadText(copy, 1, 0), "y");
}

TEST(CUMemoryStream, IsEmptyWithoutDataOrMemory) {
  char text[] = "abc";
  void* const null = nullptr;
  CUMemoryStream empty, ofSize0(0ull), ofNone(null, 100, true), copyOfNone(null, 100, false);
  CUMemoryStream huge(kHuge), hugeCopy(text, kHuge, false), of0(text, 0ull, true);
  int index = 0;
  for (auto* stream : {&empty, &ofSize0, &ofNone, &copyOfNone, &huge, &hugeCopy, &of0}) {
    EXPECT_FALSE(stream->CanRead()) << index;
    EXPECT_EQ(stream->Length(), 0u) << index;
    EXPECT_EQ(ReadText(*stream, 5, 0), "") << index++;
  }
}

// Red when the code is thrown as another type, a short read passes, or the block leaks.
TEST(CUMemoryStream, TakesASliceWholeOrFails) {
  CUSharedPtr<CUStream> const source = new ShortStream("0123456789", 100);
  CUSharedPtr<CUStream> const slow = new ShortStream("0123456789", 3);
  CUStream refusing;
  EXPECT_EQ(source->SetReadaleRange({2, 6}), 0u);
  struct {
    CUStream* source;
    _CURange range;
    std::string failure;
  } const cases[] = {{source.Get(), {2, 6}, ""},
                     {source.Get(), {2, 7}, "contents 1"},
                     {source.Get(), {1, 3}, "contents 1"},
                     {source.Get(), {3, 0}, "contents 1"},
                     {source.Get(), {2, kHuge}, "contents 1"},
                     {nullptr, {0, 3}, "contents 1"},
                     {slow.Get(), {0, 4}, "contents 1"},
                     {&refusing, {0, 3}, "unsigned 5"}};
  for (auto const& [from, wanted, failure] : cases) {
    EXPECT_EQ(Failure(from, wanted), failure) << Show(wanted);
    _CURange range = wanted;
    CUSharedPtr<CUMemoryStream> const made = CUMemoryStream::CreateMemoryStreamPtr(from, range);
    EXPECT_EQ(made != nullptr, failure.empty()) << Show(wanted);
  }
  _CURange range = {4, 3};
  CUSharedPtr<CUMemoryStream> const raw = CUMemoryStream::CreateMemoryStream(source, range);
  CUMemoryStream slice(source, range);
  EXPECT_EQ(ReadText(*raw, 99, 0) + ReadText(slice, 99, 0), "456456") << "begins at offset 0";
  EXPECT_EQ(CountOf(*raw) * 10 + CountOf(*source), 11);
  EXPECT_TRUE(CUMemoryStream::CreateMemoryStreamPtr(CUSharedPtr<CUStream>(), range) == nullptr);
}

TEST(CUMemoryStream, LocksItsReadsAndResetsOnAssignment) {
  EventLog log;
  char text[] = "abc";
  OpenMemoryStream stream(text, 3, true);
  stream.streamLock = new LoggingLock(log);
  EXPECT_EQ(ReadText(stream, 3, 0), "abc");
  EXPECT_EQ(ReadText(stream, 3, 3), "");
  EXPECT_EQ(log.Take(), "lock unlock lock unlock");
  OpenMemoryStream const other(text, 3, false);
  stream = other;
  EXPECT_EQ(log.Take(), "~lock");
  EXPECT_EQ(stream.Length(), 0u);
  EXPECT_FALSE(stream.CanRead());
  EXPECT_EQ(stream.GetPtr(), text);
}
