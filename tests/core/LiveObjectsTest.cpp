#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "QuillmereLib/collections/CUArray.h"
#include "QuillmereLib/core/CULiveObjects.h"
#include "QuillmereLib/core/CULock.h"
#include "QuillmereLib/strings/CUStringMac.h"
#include "tests/support/Threads.h"

namespace {

using Counts = std::map<std::string, std::size_t>;

struct Reel : CUObject {
  explicit Reel(bool fails = false) {
    if (fails) throw std::runtime_error("broken");
  }
};

bool AreCounted() {
  Reel const reel;
  return !CUCountLiveObjects().empty();
}

std::size_t Reels() { return CUCountLiveObjects()["(anonymous namespace)::Reel"]; }

std::string Printed() {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> const file(std::tmpfile(), &std::fclose);
  CUPrintLiveObjects(file.get());
  std::rewind(file.get());
  std::string text(100000, '\0');
  text.resize(std::fread(&text[0], 1, text.size(), file.get()));
  return text;
}

class LiveObjects : public testing::Test {
 protected:
  void SetUp() override {
    if (!AreCounted()) GTEST_SKIP() << "built without QUILLMERE_COUNT_OBJECTS";
  }
};

}  // namespace

TEST(LiveObjectsUncounted, SaysThatNothingIsCounted) {
  if (AreCounted()) GTEST_SKIP() << "built with QUILLMERE_COUNT_OBJECTS";
  EXPECT_EQ(Printed(),
            "Objects are not counted: the library is built without QUILLMERE_COUNT_OBJECTS.\n");
}

TEST_F(LiveObjects, CountEveryWayToMakeAndEndOne) {
  Counts const before = CUCountLiveObjects();
  {
    Reel onTheStack;
    Reel const copy(onTheStack);
    onTheStack = copy;
    std::array<Reel, 3> const members;
    std::unique_ptr<CUObject> const deletedThroughTheBase = std::make_unique<Reel>();
    EXPECT_THROW(Reel(true), std::runtime_error);  // the part that was made ends
    EXPECT_EQ(Reels(), 6U);

    // Strings and locks have the root as a virtual base, in another place than their own address.
    CUSharedPtr<CUMutableArray> const array = new CUMutableArray;
    for (int i = 0; i < 5; ++i) array->AddObject(new CUStringMac);
    array->AddObject(new CURecursiveLock);
    Counts now = CUCountLiveObjects();
    for (auto const& entry : before) now[entry.first] -= entry.second;
    EXPECT_EQ(now["CUStringMac"], 5U);
    EXPECT_EQ(now["CUMutableArray"], 1U);
    EXPECT_EQ(now["CUArray"], 0U);
    EXPECT_EQ(now["CURecursiveLock"], 1U);
  }
  EXPECT_EQ(CUCountLiveObjects(), before);
}

// More than the table begins with, at addresses that share places in it, and ended in another order
// than made.
TEST_F(LiveObjects, ForgetNoneAmongMany) {
  constexpr std::size_t kMany = 30000;
  std::mt19937 random(1);
  std::vector<std::unique_ptr<Reel>> reels(kMany);
  std::vector<std::unique_ptr<char[]>> between;
  for (auto& reel : reels) {
    between.push_back(std::make_unique<char[]>(random() % 400));
    reel = std::make_unique<Reel>();
  }
  std::shuffle(reels.begin(), reels.end(), random);
  for (std::size_t i = 0; i < kMany; i += 3) reels[i].reset();
  EXPECT_EQ(Reels(), kMany - kMany / 3);
  for (std::size_t i = 0; i < kMany; i += 3) reels[i] = std::make_unique<Reel>();
  EXPECT_EQ(Reels(), kMany);
  reels.clear();
  EXPECT_EQ(Reels(), 0U);
}

TEST_F(LiveObjects, CountThoseOfAllThreads) {
  std::unique_ptr<Reel> kept[4];
  OnThreads(4, [&](int thread) {
    for (int i = 0; i < 20; ++i) std::vector<Reel> const passing(5000);
    kept[thread] = std::make_unique<Reel>();
  });
  EXPECT_EQ(Reels(), 4U);
}

TEST_F(LiveObjects, ArePrintedByClass) {
  std::vector<Reel> const reels(12);
  std::size_t total = 0;
  for (auto const& entry : CUCountLiveObjects()) total += entry.second;
  std::string const text = Printed();
  EXPECT_NE(text.find("        12  (anonymous namespace)::Reel\n"), std::string::npos) << text;
  std::string const last = " " + std::to_string(total) + "  objects live\n";
  EXPECT_EQ(text.find(last) + last.size(), text.size()) << text;
}
