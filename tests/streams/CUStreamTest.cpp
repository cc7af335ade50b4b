// The contract of every stream, and the stream over memory.

#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/core/CUErrorContents.h"
#include "QuillmereLib/streams/CUMemoryStream.h"
#include "tests/support/CountedObject.h"
#include "tests/support/Files.h"
#include "tests/support/LoggingLock.h"
#include "tests/support/ThrownCode.h"
#include "tests/support/XmlDocuments.h"

namespace {

auto const kBegin = CUStream_Seek_Origin_Begin, kCurrent = CUStream_Seek_Origin_Current,
           kEnd = CUStream_Seek_Origin_End;
constexpr unsigned long long kMost = ~0ull, kHuge = 1ull << 62;

// A stream over memory whose fields are open.
struct OpenStream : CUMemoryStream {
  using CUMemoryStream::CUMemoryStream;
  using CUMemoryStream::operator=;
  using CUStream::readableRange;
  using CUStream::streamLock;
  using CUStream::streamPosition;
};

std::string Tell(_CURange const& range) {
  return std::to_string(range.location) + "+" + std::to_string(range.length);
}

}  // namespace

TEST(CUStream, RefusesEverythingAsUnsignedInt) {
  CUStream stream;
  UInt8 byte = 1;
  CFHolder<CFDataRef> const data(CFDataCreate(nullptr, &byte, 1));
  EXPECT_EQ(ThrownCode([&] { stream.WriteCFData(data.Get(), 0, kBegin); }), 5u);
  EXPECT_EQ(ThrownCode([&] { stream.SetLength(0); }), 5u);
  EXPECT_EQ(stream.WriteCFData(nullptr, 0, kBegin), 0u);
}

TEST(CUStream, ReadableRangeIsTakenOrRefusedAndBoundsReads) {
  _CURange const wrapsNowhere = {CURange_NoLocation, kMost - CURange_NoLocation + 1};
  char bytes[100];
  OpenStream stream(bytes, 100, true);
  // The second wraps to 100.
  for (_CURange const& range : {_CURange{30, 70}, {kMost, 101}, {1, kMost}}) {
    EXPECT_EQ(stream.SetReadaleRange(range), 0u) << Tell(range);
    EXPECT_EQ(Tell(stream.readableRange), Tell(range));
  }
  for (_CURange const& range : {_CURange{0, 101}, {101, 0}, {kMost, 102}, wrapsNowhere}) {
    EXPECT_EQ(stream.SetReadaleRange(range), 0x10001u) << Tell(range);
  }
  stream.ResetReadaleRange();
  EXPECT_EQ(Tell(stream.readableRange), "0+100");

  // Nothing outside the range is given, and the far end alone is cut.
  stream.streamPosition = 12;
  auto const unknown = static_cast<CUStream_Seek_Origin>(3);
  auto const least = static_cast<long long>(1ull << 63);
  _CURange const narrow = {10, 20}, all = {0, kMost}, wraps = {kMost, 101};
  std::string const rest = "1+" + std::to_string(kMost - 1);
  std::tuple<_CURange, unsigned long long, long long, CUStream_Seek_Origin, std::string> const
      cases[] = {{narrow, 5, 9, kBegin, "0+0"},     {narrow, 5, 10, kBegin, "10+5"},
                 {narrow, 100, 25, kBegin, "25+5"}, {narrow, 1, 30, kBegin, "0+0"},
                 {narrow, 0, 15, kBegin, "0+0"},    {narrow, 3, -2, kCurrent, "10+3"},
                 {narrow, 3, -13, kCurrent, "0+0"}, {narrow, 9, -75, kEnd, "25+5"},
                 {narrow, 9, -101, kEnd, "0+0"},    {narrow, 9, least, kBegin, "0+0"},
                 {narrow, 5, 15, unknown, "0+0"},   {narrow, kMost, 15, kBegin, "15+15"},
                 {wraps, 5, -1, kBegin, "0+0"},     {all, kMost, 1, kBegin, rest}};
  for (auto const& [range, size, offset, origin, expected] : cases) {
    stream.readableRange = range;
    EXPECT_EQ(Tell(stream.CalcReadRange(size, offset, origin)), expected)
        << Tell(range) << " size " << size << " offset " << offset << " origin " << origin;
  }
}

TEST(CUMemoryStream, OwnsACopyAndBorrowsInPlace) {
  char text[] = "abc";
  CUMemoryStream copy(text, 3, false), inPlace(text, 3, true);
  text[0] = 'x';
  for (int i = 0; i < 2; ++i) EXPECT_EQ(ReadText(copy, 3, 0, kCurrent), "abc");
  EXPECT_EQ(copy.Read(nullptr, 5, 0, kBegin), 0u);
  inPlace.UnInit();
  EXPECT_EQ(ReadText(inPlace, kMost, -2, kEnd), "bc");
  EXPECT_EQ(inPlace.SetReadaleRange({1, 1}), 0u);
  EXPECT_EQ(ReadText(inPlace, 99, 1) + ReadText(inPlace, 1, 0), "b");
  copy.UnInit();
  EXPECT_FALSE(copy.CanRead());
  EXPECT_EQ(std::to_string(copy.Length()) + ReadText(copy, 3, 0), "3");
  void* const null = nullptr;
  CUMemoryStream copyOfNone(null, 100, false), huge(kHuge), hugeCopy(text, kHuge, false);
  for (auto* stream : {&copyOfNone, &huge, &hugeCopy}) {
    EXPECT_FALSE(stream->CanRead());
    EXPECT_EQ(std::to_string(stream->Length()) + ReadText(*stream, 5, 0), "0");
  }
}

// Red when the code is thrown as another type, a short read passes, or the block leaks.
TEST(CUMemoryStream, TakesASliceWholeOrFails) {
  CUSharedPtr<CUStream> const source = StreamOf("0123456789"), slow = StreamOf("0123456789", 3);
  CUStream refusing;
  EXPECT_EQ(source->SetReadaleRange({2, 6}), 0u);
  // "thrown" is what a slice that cannot be made throws.
  std::tuple<CUStream*, _CURange, char const*> const cases[] = {
      {source.Get(), {2, 7}, "thrown"},     {source.Get(), {1, 3}, "thrown"},
      {source.Get(), {3, 0}, "thrown"},     {source.Get(), {2, kHuge}, "thrown"},
      {nullptr, {0, 3}, "thrown"},          {slow.Get(), {0, 4}, "thrown"},
      {&refusing, {0, 3}, "not supported"}, {source.Get(), {4, 3}, "456"}};
  for (auto const& [from, wanted, expected] : cases) {
    _CURange range = wanted;
    std::string told;
    try {
      CUMemoryStream slice(from, range);
      told = ReadText(slice, 99, 0);
    } catch (_CUErrorContents code) {
      told = code == CUError_InvalidArgument ? "thrown" : "?";
    } catch (unsigned int code) {
      told = code == 5 ? "not supported" : "?";
    }
    EXPECT_EQ(told, expected) << Tell(wanted);
    CUSharedPtr<CUMemoryStream> const made = CUMemoryStream::CreateMemoryStreamPtr(from, range);
    EXPECT_EQ(made != nullptr, told == "456") << Tell(wanted);
  }
  EXPECT_EQ(CountOf(*source), 1);
}

TEST(CUMemoryStream, LocksItsReadsAndResetsOnAssignment) {
  EventLog log;
  char text[] = "abc";
  OpenStream stream(text, 3, true);
  stream.streamLock = new LoggingLock(log);
  stream.streamPosition = 3;
  EXPECT_EQ(ReadText(stream, 3, 0), "abc");
  stream = OpenStream(text, 3, false);
  EXPECT_EQ(log.Take(), "lock unlock ~lock");
  EXPECT_EQ(Tell(stream.readableRange), "0+0");
  EXPECT_EQ(stream.Length() + stream.streamPosition, 0u);
  EXPECT_EQ(stream.GetPtr(), text);
}
