#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "QuillmereLib/values/CUColor.h"
#include "QuillmereLib/values/CUIdentifierGenerator.h"
#include "QuillmereLib/values/CUPerformanceCounter.h"
#include "tests/support/InChild.h"
#include "tests/support/Strings.h"
#include "tests/support/Threads.h"

namespace {

std::string Channels(CUColor& color) {
  std::string text;
  for (int const channel : {color.A(), color.R(), color.G(), color.B()}) {
    text += (text.empty() ? "" : " ") + std::to_string(channel);
  }
  return text;
}

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

}  // namespace

TEST(CUColor, HasItsChannels) {
  CUSharedPtr<CUColor> const changed = CUColor::Create(10, 20, 30);
  EXPECT_EQ(Channels(*changed), "255 10 20 30");
  EXPECT_TRUE(changed->Init(4, 3, 2, 1));
  CUColor copy(*changed), none;
  EXPECT_EQ(Channels(copy), "4 3 2 1");
  EXPECT_EQ(Channels(none), "0 0 0 0");
  EXPECT_EQ(Channels(*CUColor::Create(10, 20, 30, 40)), "10 20 30 40");
  EXPECT_EQ(Channels(*CUColor::Red()), "255 255 0 0");
  EXPECT_EQ(Channels(*CUColor::Black()), "255 0 0 0");
  EXPECT_EQ(Channels(*CUColor::Gray()), "255 128 128 128");
  EXPECT_EQ(Channels(*CUColor::DarkGray()), "255 169 169 169");
  EXPECT_EQ(Channels(*CUColor::LightGray()), "255 211 211 211");
  EXPECT_EQ(Channels(*CUColor::White()), "255 255 255 255");
  EXPECT_NE(CUColor::White(), CUColor::White()) << "a new object each time";
}

// Red when the steps of the arithmetic are reordered, are signed, or run on a mark not set.
TEST(CUPerformanceCounter, ComputesTheTimeBetweenItsMarks) {
  struct {
    Marks marks;
    std::string microseconds, description;
  } const cases[] = {
      {{1, 1000}, "0", ""},
      {{1, 1001}, "1", "Processing time:1micro sec, 0msec, 0sec."},
      {{1, 3999999999}, "3999999", "Processing time:3999999micro sec, 3999msec, 3sec."},
      {{6, 5},
       "18446744073709551",
       "Processing time:18446744073709551micro sec, 18446744073709msec, 18446744073sec."},
      {{0, 1500001}, "0", ""},
      {{1500001, 0}, "0", ""},
      {{1, 1500001, 0, 1}, "0", ""},
      {{1, 1500001, 1, 0}, "0", ""},
      {{1, 25, 125, 3}, "1", "Processing time:1micro sec, 0msec, 0sec."},
      {{1, 24, 125, 3}, "0", ""},
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

TEST(CUPerformanceCounter, MeasuresTime) {
  CUSharedPtr<CUPerformanceCounter> const counter = new CUPerformanceCounter;
  counter->EndCounter();
  EXPECT_EQ(counter->GetProcessingTime(), 0u);
  counter->StartCounter();
  std::this_thread::sleep_for(std::chrono::milliseconds(3));
  counter->EndCounter();
  EXPECT_GE(counter->GetProcessingTime(), 3000u);
  EXPECT_LT(counter->GetProcessingTime(), 60000000u);

  CUPerformanceCounter copy;
  SetMarks(*counter, {1, 3001, 4, 3});
  copy.CopyCounter(counter);
  EXPECT_EQ(copy.GetProcessingTime(), 4u);
}

TEST(CUIdentifierGenerator, CountsFrom1InEveryProcess) {
  auto const firstTwo = [] {
    std::string numbers;
    for (int i = 0; i < 2; ++i) {
      numbers += std::to_string(CUIdentifierGenerator::SharedInstance()->GenerateIdentifier());
    }
    return numbers;
  };
  for (int process = 0; process < 2; ++process) EXPECT_EQ(InChild(firstTwo), "12");
}

TEST(CUIdentifierGenerator, IsAnotherAfterItsEnd) {
  auto const work = [] {
    CUIdentifierGenerator::SharedInstance()->GenerateIdentifier();
    asksAtTheEnd = true;
    std::exit(0);
  };
  EXPECT_EXIT(work(), testing::ExitedWithCode(3), "");
}

TEST(CUIdentifierGenerator, GivesEachThreadNumbersOfItsOwn) {
  CUIdentifierGenerator generator;
  std::vector<std::int64_t> taken[4], all;
  OnThreads(4, [&](int thread) {
    for (int i = 0; i < 5000; ++i) taken[thread].push_back(generator.GenerateIdentifier());
  });
  for (auto const& numbers : taken) {
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    all.insert(all.end(), numbers.begin(), numbers.end());
  }
  std::sort(all.begin(), all.end());
  for (std::size_t i = 0; i < all.size(); ++i) ASSERT_EQ(all[i], static_cast<std::int64_t>(i) + 1);
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
              bool const known = std::count(instances, instances + 8, last) != 0;
              bool const stays = CUIdentifierGenerator::SharedInstance() == last;
              return std::string(known && stays ? "one of theirs" : "another");
            }),
            "one of theirs");
}
