#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "QuillmereLib/collections/CUArray.h"
#include "QuillmereLib/core/CULiveObjects.h"
#include "QuillmereLib/core/CULock.h"
#include "QuillmereLib/strings/CUStringMac.h"
#include "tests/support/Threads.h"

namespace {

struct Reel : CUObject {
  explicit Reel(bool fails = false) {
    if (fails) throw std::runtime_error("broken");
  }
};

std::size_t Reels() { return CUCountLiveObjects()["(anonymous namespace)::Reel"]; }

}  // namespace

TEST(LiveObjects, AreCountedHoweverTheyAreMadeAndEnd) {
  auto const before = CUCountLiveObjects();
  {
    Reel onTheStack;
    if (Reels() == 0) GTEST_SKIP() << "built without QUILLMERE_COUNT_OBJECTS";
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
    auto now = CUCountLiveObjects();
    for (auto const& entry : before) now[entry.first] -= entry.second;
    EXPECT_EQ(now["CUStringMac"], 5U);
    EXPECT_EQ(now["CURecursiveLock"], 1U);
  }
  EXPECT_EQ(CUCountLiveObjects(), before);

  // On several threads more than the table begins with, at addresses that share places in it, and
  // ended in another order than made.
  constexpr std::size_t kMany = 9000;
  std::vector<std::unique_ptr<Reel>> reels[4];
  OnThreads(4, [&](int thread) {
    std::mt19937 random(static_cast<unsigned>(thread));
    std::vector<std::unique_ptr<char[]>> between;
    for (std::size_t i = 0; i < kMany; ++i) {
      between.push_back(std::make_unique<char[]>(random() % 400));
      reels[thread].push_back(std::make_unique<Reel>());
    }
    std::shuffle(reels[thread].begin(), reels[thread].end(), random);
    reels[thread].resize(kMany / 3);
  });
  EXPECT_EQ(Reels(), 4 * (kMany / 3));
  for (auto& each : reels) each.clear();
  EXPECT_EQ(Reels(), 0U);
}
