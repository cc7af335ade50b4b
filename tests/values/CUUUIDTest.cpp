#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "QuillmereLib/values/CUUUID.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/InChild.h"
#include "tests/support/Strings.h"
#include "tests/support/Threads.h"
#include "tests/support/ThrownCode.h"

namespace {

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
  EXPECT_EQ(bytes.byte0, 0x01);
  EXPECT_EQ(uuid.GetUUIDBytes().byte15, 0x10);
  EXPECT_EQ(Utf8(uuid.Description()),
            Utf8(uuid.CUObject::Description()) + " 01234567-89AB-CDEF-FEDC-BA9876543210");
  for (std::size_t i = 0; i < kSize; ++i) {
    Bytes changed = kCounting;
    changed[i] ^= 1;
    EXPECT_FALSE(CUUUID(changed.data()) == uuid) << "byte " << i;
  }
  EXPECT_EQ(BytesOf(*CUUUID::CreateNull()), Bytes(kSize, 0));
}

TEST(CUUUID, IsAssignedByItsBytes) {
  CUUUID uuid(kCounting.data());
  CFUUIDRef const held = uuid.GetUUIDRef();
  uuid = *&uuid;
  uuid.SetUUIDRef(held);
  static_cast<CUObject&>(uuid) = CUUUID();
  EXPECT_EQ(uuid.GetUUIDRef(), held) << "the same object changes nothing";
  CUUUID const other;
  uuid = other;
  EXPECT_TRUE(uuid == other);
  EXPECT_NE(uuid.GetUUIDRef(), static_cast<CFUUIDRef>(other));
}

// Red when a null platform object is read.
TEST(CUUUID, MayHaveNoBytes) {
  CUUUID none(static_cast<CFUUIDRef>(nullptr)), some;
  EXPECT_EQ(none.GetUUIDRef(), nullptr);
  EXPECT_EQ(BytesOf(none), Bytes(kSize, 0));
  EXPECT_EQ(Utf8(none.Description()), Utf8(none.CUObject::Description()));
  EXPECT_TRUE(none == *CUUUID::CreateNull() && none == static_cast<CFUUIDRef>(nullptr));
  EXPECT_EQ(none.GetUUIDBytes().byte6, 0);
  EXPECT_EQ(CUUUID(none).GetUUIDRef(), nullptr);
  EXPECT_EQ(CFUUIDCreateString(kCFAllocatorDefault, nullptr), nullptr);
  none.SetUUIDRef(nullptr);
  EXPECT_EQ(none.GetUUIDRef(), nullptr);
  some.SetUUIDRef(nullptr);
  none = some;
  for (CUUUID* const uuid : {&some, &none}) {
    EXPECT_NE(uuid->GetUUIDRef(), nullptr);
    EXPECT_EQ(BytesOf(*uuid), Bytes(kSize, 0));
  }
}

TEST(CUUUID, HasASerialAreaAtItsEnd) {
  for (std::size_t i = 0; i < kSize; ++i) {
    Bytes bytes(kSize, 0);
    bytes[i] = 0x80;
    EXPECT_EQ(CUUUID(bytes.data()).IsNotFillSerialArea(), i < 11) << "byte " << i;
  }
  CUUUID uuid(kCounting.data());
  uuid.CorrectSerialArea(nullptr);
  EXPECT_EQ(BytesOf(uuid), kCounting);
  std::vector<unsigned char> serial = {1, 2, 3, 4, 5};  // whose end a sanitizer guards
  uuid.CorrectSerialArea(serial.data());
  Bytes corrected = kCounting;
  std::copy(serial.begin(), serial.end(), corrected.begin() + 11);
  EXPECT_EQ(BytesOf(uuid), corrected);
}

// Derived classes change what the operations rest on.
TEST(CUUUID, ReachesItsBytesByTheVirtualOperations) {
  struct Derived : CUUUID {
    Derived() : CUUUID(kCounting.data()) {}
    void GetBytes(unsigned char* bytes) override { std::memset(bytes, 0, kSize); }
    CFUUIDBytes GetUUIDBytes() override {
      if (set.byte0 == 0xEE) throw 8;
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
  unsigned char serial[5] = {9, 9, 9, 9, 8};
  derived.CorrectSerialArea(serial);
  EXPECT_EQ(derived.set.byte15, 8);
  EXPECT_EQ(derived.set.byte0, 0) << "the bytes come from the virtual operation, too";
  serial[0] = 0xFF;
  EXPECT_NO_THROW(derived.CorrectSerialArea(serial));
  derived.set.byte0 = 0xEE;
  EXPECT_THROW(derived.CorrectSerialArea(serial), int) << "only what storing throws is dropped";
  EXPECT_TRUE(derived == CUUUID() && derived == CUUUID().GetUUIDRef());
  static_cast<CUUUID&>(derived) = *CUUUID::CreateNull();
  EXPECT_EQ(derived.set.byte15, 0);
}

// Red when a failure leaves a dangling object, or is thrown as anything but its code.
TEST(CUUUID, OutOfMemoryIsToldAndLeavesNothing) {
  CUUUID uuid(kCounting.data()), corrected(kCounting.data()), set(kCounting.data());
  CFUUIDBytes const bytes = uuid;
  EXPECT_EQ(FailEachAllocation([] { CUUUID::Create(); }, [] {}), 2);
  EXPECT_EQ(FailEachAllocation([&] { CUUUID::Create(uuid); }, [] {}), 2);

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
