// How objects are counted, owned and described.

#include <gtest/gtest.h>

#include <cstdio>
#include <vector>

#include "tests/support/CountedObject.h"
#include "tests/support/LoggingLock.h"
#include "tests/support/Strings.h"
#include "tests/support/Threads.h"

namespace {

// A chain whose links own each other: what an assignment releases may hold what it assigns.
class Link : public CountedObject {
 public:
  Link(int value, EventLog& log, CUSharedPtr<Link> next)
      : CountedObject(value, &log), Next(std::move(next)) {}
  CUSharedPtr<Link> Next;
};

class SecondBase : public std::vector<int>, public CountedObject {};

}  // namespace

// Red when a copy or an assignment takes the count along: the first free would come too early.
TEST(CUObject, CountStaysWithTheObject) {
  CUSharedPtr<CountedObject> const source = new CountedObject(1);
  CUSharedPtr<CountedObject> const second = source;
  CountedObject copy(*source);
  copy = *source;
  static_cast<CUObject&>(copy) = *source;
  *source = copy;
  EXPECT_EQ(CountOf(copy), 0);
  EXPECT_EQ(CountOf(*source), 2);
  // The mutex of all objects is ready and free.
  ASSERT_TRUE(initMutex_CUObject.load());
  EXPECT_EQ(pthread_mutex_trylock(&g_MutexHandle_CUObject), 0);
  EXPECT_EQ(pthread_mutex_unlock(&g_MutexHandle_CUObject), 0);
}

TEST(CUObject, DescribesItselfByEncodedTypeAndAddress) {
  CUSimpleMonitor monitor;
  char address[40];
  std::snprintf(address, sizeof address, "(0x0x%zx)", reinterpret_cast<std::size_t>(&monitor));
  EXPECT_EQ(Utf8(static_cast<CUObject&>(monitor).Description()),
            std::string("15CUSimpleMonitor") + address);
}

// Red when one form of new takes a block that delete does not give back to where it came from.
TEST(CUObject, MayBeAlignedWidely) {
  struct alignas(64) Wide : CountedObject {};
  int const live = CountedObject::Live;
  for (CUSharedPtr<Wide> object : {new Wide, new (std::nothrow) Wide}) {
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(object.Get()) % 64, 0u);
  }
  EXPECT_EQ(CountedObject::Live, live);
}

static_assert(std::has_virtual_destructor_v<CUSharedPtr<CUObject>>);
static_assert(sizeof(CUSharedPtr<CUObject>) == 2 * sizeof(void*));
static_assert(!std::is_convertible_v<CUSharedPtr<CUObject>, CUObject*>);

TEST(CUSharedPtr, CountsEachHolder) {
  auto* const object = new CountedObject;
  CUSharedPtr<CountedObject> first = object;
  {
    CUSharedPtr<CountedObject> const second = first, null;
    CUSharedPtr<CUObject> third = second;
    EXPECT_TRUE(third == first && third != nullptr && third);
    CUSharedPtr<CUObject> const taken = std::move(third);
    EXPECT_TRUE(third == nullptr);
    CUSharedPtr<CountedObject> fourth = null;
    fourth = second;
    EXPECT_EQ(CountOf(*object), 4);
  }
  EXPECT_EQ(CountOf(*object), 1);
  first = nullptr;
  EXPECT_EQ(CountedObject::Live, 0) << "dies at the assignment";
}

// Red when the old object goes before the new one is counted.
TEST(CUSharedPtr, AssignmentAddsBeforeItReleases) {
  EventLog log;
  CUSharedPtr<Link> chain = new Link(1, log, new Link(2, log, new Link(3, log, nullptr)));
  CUSharedPtr<Link> const& self = chain;
  chain = self;
  chain = CUSharedPtr<Link>(chain);
  chain = std::move(const_cast<CUSharedPtr<Link>&>(self));
  EXPECT_EQ(CountOf(*chain), 1);
  EXPECT_EQ(log.Take(), "");
  chain = chain->Next;
  EXPECT_EQ(log.Take(), "~1");
  EXPECT_EQ(CountOf(*chain), 1);
  chain = std::move(chain->Next);
  EXPECT_EQ(log.Take(), "~2");
  chain = nullptr;
  EXPECT_EQ(log.Take(), "~3");
}

// Red when an object is destroyed as T, or its address is taken for that of its CUObject.
TEST(CUSharedPtr, DestroysTheWholeObjectThroughAnyBase) {
  EventLog log;
  CUSharedPtr<CULockAbstract> lock = new LoggingLock(log);
  CUSharedPtr<CUObject> root = lock;
  EXPECT_TRUE(root == lock);
  lock = nullptr;
  root = nullptr;
  EXPECT_EQ(log.Take(), "~lock");
  {
    CUSharedPtr<SecondBase> const numbers = new SecondBase;
    CUSharedPtr<CUObject> const object = numbers;
    EXPECT_EQ(CountOf(*object), 2);
    EXPECT_EQ(dynamic_cast<SecondBase*>(object.Get()), numbers.Get());
  }
  EXPECT_EQ(CountedObject::Live, 0);
}

TEST(CUSharedPtr, CountIsAtomic) {
  CUSharedPtr<CountedObject> const object = new CountedObject;
  OnThreads(4, [&object](int) {
    for (int round = 0; round < 20000; ++round) {
      CUSharedPtr<CUObject> copy = object;
      CUSharedPtr<CUObject> const moved = std::move(copy);
    }
  });
  EXPECT_EQ(CountOf(*object), 1);
}
