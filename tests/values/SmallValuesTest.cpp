// Time measurement, and identifiers of both kinds.

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "QuillmereLib/values/CUIdentifierGenerator.h"
#include "QuillmereLib/values/CUPerformanceCounter.h"
#include "QuillmereLib/values/CUUUID.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/InChild.h"
#include "tests/support/Strings.h"
#include "tests/support/Threads.h"
#include "tests/support/ThrownCode.h"

namespace {

// The fields of a counter, which stand behind the count of objects.
struct Marks {
  std::uint64_t start;
  std::uint64_t end;
  std::uint32_t numer = 1;
  std::uint32_t denom = 1;
};
static_assert(sizeof(CUPerformanceCounter) == sizeof(CUObject) + sizeof(Marks));

void SetMarks(CUPerformanceCounter& counter, Marks const& marks) {
  std::memcpy(reinterpret_cast<char*>(&counter) + sizeof(CUObject), &marks, sizeof marks);
}

bool asksAtTheEnd = false;

// Runs when all static objects are gone.
__attribute__((destructor)) void AskAtTheEnd() {
  if (!asksAtTheEnd) return;
  auto const number = CUIdentifierGenerator::SharedInstance()->GenerateIdentifier();
  std::_Exit(number == 1 ? 3 : 4);
}

constexpr int kSize = 16;
using Bytes = std::vector<unsigned char>;

Bytes const kCounting = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF,
                         0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10};

Bytes BytesOf(CUUUID& uuid) {
  Bytes bytes(kSize, 0xEE);
  uuid.GetBytes(bytes.data());
  return bytes;
}

// The bytes of new identifiers, one behind the other.
std::string NewIdentifiers(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    Bytes const bytes = BytesOf(*CUUUID::Create());
    text.append(bytes.begin(), bytes.end());
  }
  return text;
}

void ExpectAllDifferent(std::string const& identifiers, std::size_t count) {
  EXPECT_EQ(identifiers.size(), count * kSize);
  std::set<std::string> all;
  for (std::size_t i = 0; i < count; ++i) all.insert(identifiers.substr(i * kSize, kSize));
  EXPECT_EQ(all.size(), count);
}

// Whether the system clears memory in a fork where it says that it does: some emulators do not.
bool ClearsMemoryInAFork() {
  void* const memory = mmap(nullptr, 1, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED || madvise(memory, 1, MADV_WIPEONFORK) != 0) return true;
  char* const byte = static_cast<char*>(memory);
  *byte = 'x';
  bool const clears = InChild([=] { return std::string(*byte == 'x' ? "kept" : ""); }).empty();
  munmap(memory, 1);
  return clears;
}

}  // namespace

// Red when the steps of the arithmetic are reordered, are signed, or run on a mark not set.
TEST(CUPerformanceCounter, ComputesTheTimeBetweenItsMarks) {
  struct {
    Marks marks;
    std::string microseconds, description;
  } const cases[] = {
      {{1, 3999999999}, "3999999", "Processing time:3999999micro sec, 3999msec, 3sec."},
      {{0, 1500001}, "0", ""},
      {{1, 1500001, 1, 0}, "0", ""},
      {{1, 25, 125, 3}, "1", "Processing time:1micro sec, 0msec, 0sec."},
      // The product wraps before it is divided.
      {{1, (1ull << 63) + 4001, 2, 4}, "2", "Processing time:2micro sec, 0msec, 0sec."},
  };
  for (auto const& [marks, microseconds, description] : cases) {
    CUPerformanceCounter counter;
    SetMarks(counter, marks);
    EXPECT_EQ(std::to_string(counter.GetProcessingTime()), microseconds) << marks.end;
    EXPECT_EQ(Utf8(counter.Description()), description) << marks.end;
  }
}

TEST(CUIdentifierGenerator, IsAnotherAfterItsEnd) {
  CUIdentifierGenerator::SharedInstance()->GenerateIdentifier();
  asksAtTheEnd = true;
  EXPECT_EXIT(std::exit(0), testing::ExitedWithCode(3), "");
  asksAtTheEnd = false;
}

TEST(CUIdentifierGenerator, GivesEachThreadNumbersOfItsOwn) {
  CUIdentifierGenerator generator;
  std::vector<std::int64_t> taken[4];
  OnThreads(4, [&](int thread) {
    for (int i = 0; i < 5000; ++i) taken[thread].push_back(generator.GenerateIdentifier());
  });
  std::set<std::int64_t> all;
  for (auto const& numbers : taken) {
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    all.insert(numbers.begin(), numbers.end());
  }
  EXPECT_TRUE(all.size() == 20000 && *all.begin() == 1 && *all.rbegin() == 20000);
}

// Red when threads that come first together are given an object that is freed, or the one that
// stays is none of theirs.
TEST(CUIdentifierGenerator, MayBeMadeByManyThreadsAtOnce) {
  EXPECT_EQ(InChild([] {
              std::atomic<int> waiting{8};
              CUSharedPtr<CUIdentifierGenerator> instances[8];
              OnThreads(8, [&](int thread) {
                --waiting;
                while (waiting != 0) std::this_thread::yield();
                instances[thread] = CUIdentifierGenerator::SharedInstance();
                instances[thread]->GenerateIdentifier();
              });
              auto const last = CUIdentifierGenerator::SharedInstance();
              bool const isTheirs = std::count(instances, instances + 8, last) != 0;
              return std::string(isTheirs ? "one of theirs" : "another");
            }),
            "one of theirs");
}

// Red when a bit is fixed that should be random, or one is random that names the version.
TEST(CUUUID, IsRandomOfVersion4) {
  std::string const identifiers = NewIdentifiers(1000);
  ExpectAllDifferent(identifiers, 1000);
  Bytes anySet(kSize, 0), allSet(kSize, 0xFF);
  for (std::size_t i = 0; i < identifiers.size(); ++i) {
    auto const byte = static_cast<unsigned char>(identifiers[i]);
    anySet[i % kSize] |= byte;
    allSet[i % kSize] &= byte;
  }
  Bytes ones(kSize, 0xFF), zeroes(kSize, 0);
  ones[6] = 0x4F, ones[8] = 0xBF;
  zeroes[6] = 0x40, zeroes[8] = 0x80;
  EXPECT_EQ(anySet, ones);
  EXPECT_EQ(allSet, zeroes);
}

// Red when a fork hands out what its parent keeps for later, at whatever point of what is kept.
TEST(CUUUID, IsNeverTheSameInAFork) {
  if (!ClearsMemoryInAFork()) GTEST_SKIP() << "this system does not clear memory in a fork";
  std::string all;
  for (int taken : {1, 5, 58, 100}) {
    all += NewIdentifiers(taken);
    all += InChild([] {
      std::string const own = NewIdentifiers(70);
      return own + InChild([] { return NewIdentifiers(70); }) + NewIdentifiers(70);
    });
    all += NewIdentifiers(200);
  }
  ExpectAllDifferent(all, 164 + 4 * 410);
}

TEST(CUUUID, IsNeverTheSameInThreads) {
  // Its destructor runs when what the thread kept is gone.
  struct AtThreadEnd {
    std::string* text = nullptr;
    ~AtThreadEnd() { *text += NewIdentifiers(100); }
  };
  std::string texts[4];
  OnThreads(4, [&](int thread) {
    thread_local AtThreadEnd atEnd;
    atEnd.text = &texts[thread];
    texts[thread] = NewIdentifiers(500);
  });
  ExpectAllDifferent(texts[0] + texts[1] + texts[2] + texts[3], 2400);
}

TEST(CUUUID, TakesAndGivesItsBytesInOrder) {
  CUUUID uuid(kCounting.data());
  CFUUIDBytes const bytes = uuid;
  CUSharedPtr<CUUUID> const others[] = {CUUUID::Create(bytes), CUUUID::Create(uuid.GetUUIDRef()),
                                        CUUUID::Create(uuid), CUUUID::Create(kCounting.data())};
  for (auto const& other : others) {
    EXPECT_EQ(BytesOf(*other), kCounting);
    EXPECT_NE(other->GetUUIDRef(), uuid.GetUUIDRef()) << "an object of its own";
    EXPECT_TRUE(*other == uuid && *other == uuid.GetUUIDRef() && *other == bytes);
  }
  EXPECT_EQ(Utf8(uuid.Description()),
            Utf8(uuid.CUObject::Description()) + " 01234567-89AB-CDEF-FEDC-BA9876543210");
  for (std::size_t i = 0; i < kSize; ++i) {
    Bytes changed = kCounting;
    changed[i] ^= 1;
    EXPECT_FALSE(CUUUID(changed.data()) == uuid) << "byte " << i;
  }
  CFUUIDRef const held = uuid.GetUUIDRef();
  uuid = *&uuid;
  static_cast<CUObject&>(uuid) = CUUUID();
  EXPECT_EQ(uuid.GetUUIDRef(), held) << "the same object changes nothing";
  CUUUID some;
  uuid = some;
  EXPECT_TRUE(uuid == some);
  EXPECT_NE(uuid.GetUUIDRef(), some.GetUUIDRef());

  CUUUID none(static_cast<CFUUIDRef>(nullptr));
  EXPECT_EQ(BytesOf(none), Bytes(kSize, 0));
  EXPECT_EQ(Utf8(none.Description()), Utf8(none.CUObject::Description()));
  EXPECT_TRUE(none == *CUUUID::CreateNull() && none == static_cast<CFUUIDRef>(nullptr));
  EXPECT_EQ(CUUUID(none).GetUUIDRef(), nullptr);
  some.SetUUIDRef(nullptr);
  EXPECT_NE(some.GetUUIDRef(), nullptr);
  EXPECT_EQ(BytesOf(some), Bytes(kSize, 0));
}

TEST(CUUUID, HasASerialAreaAtItsEnd) {
  for (std::size_t i = 0; i < kSize; ++i) {
    Bytes bytes(kSize, 0);
    bytes[i] = 0x80;
    EXPECT_EQ(CUUUID(bytes.data()).IsNotFillSerialArea(), i < 11) << "byte " << i;
  }
  CUUUID uuid(kCounting.data());
  uuid.CorrectSerialArea(nullptr);
  Bytes serial = {1, 2, 3, 4, 5}, corrected = kCounting;  // whose ends a sanitizer guards
  uuid.CorrectSerialArea(serial.data());
  std::copy(serial.begin(), serial.end(), corrected.begin() + 11);
  EXPECT_EQ(BytesOf(uuid), corrected);

  // Derived classes change what the operations rest on.
  struct Derived : CUUUID {
    void GetBytes(unsigned char* bytes) override { std::memset(bytes, 0, kSize); }
    CFUUIDBytes GetUUIDBytes() override {
      if (set.byte15 == 8) throw 8;
      return {};
    }
    void SetUUIDBytes(CFUUIDBytes const& bytes) override {
      if (bytes.byte11 == 0xFF) throw 7;
      set = bytes;
    }
    bool operator==(CFUUIDBytes const&) const override { return true; }
    using CUUUID::operator==;
    CFUUIDBytes set = {};
  } derived;
  EXPECT_TRUE(derived.IsNotFillSerialArea());
  serial = {0xFF, 9, 9, 9, 8};
  EXPECT_NO_THROW(derived.CorrectSerialArea(serial.data()));
  serial[0] = 9;
  derived.CorrectSerialArea(serial.data());
  EXPECT_EQ(derived.set.byte15, 8);
  EXPECT_EQ(derived.set.byte6, 0) << "the bytes come from the virtual operation, too";
  EXPECT_THROW(derived.CorrectSerialArea(serial.data()), int) << "only what storing throws is lost";
  EXPECT_TRUE(derived == CUUUID() && derived == CUUUID().GetUUIDRef());
  static_cast<CUUUID&>(derived) = *CUUUID::CreateNull();
  EXPECT_EQ(derived.set.byte15, 0);
}

// Red when a failure leaves a dangling object, or is thrown as anything but its code.
TEST(CUUUID, OutOfMemoryIsToldAndLeavesNothing) {
  CUUUID corrected(kCounting.data()), set(kCounting.data());
  CFUUIDBytes const bytes = set;
  auto const codeWithoutMemory = [](auto const& work) {
    FailingAllocation const failing(1);
    return ThrownCode(work);
  };
  unsigned char serial[5] = {};
  EXPECT_EQ(codeWithoutMemory([&] { corrected.CorrectSerialArea(serial); }), 0u);
  EXPECT_EQ(codeWithoutMemory([&] { set.SetUUIDBytes(bytes); }), 2u);
  EXPECT_TRUE(corrected.GetUUIDRef() == nullptr && set.GetUUIDRef() == nullptr);
  EXPECT_EQ(codeWithoutMemory([] { CUUUID const none; }), 2u);
}
