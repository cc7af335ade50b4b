#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <string>

#include "QuillmereLib/collections/CUDictionary.h"
#include "tests/support/CountedObject.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/Scripted.h"
#include "tests/support/Strings.h"

namespace {

using Object = CUSharedPtr<CUObject>;
using Dictionary = CUSharedPtr<CUMutableDictionary>;

std::string Keys(CUDictionary& dictionary) {
  std::string text;
  auto const keys = dictionary.AllKeys();
  for (unsigned int i = 0; i < keys->Count(); ++i) {
    text += (i == 0 ? "" : " ") + Utf8(keys->ObjectAtIndex(i));
  }
  return text;
}

std::string Value(CUDictionary& dictionary, std::string const& key) {
  return Utf8(dictionary.ObjectForKey(Make(key)));
}

}  // namespace

// Red when keys are told apart by their characters, or a key is replaced with its value.
TEST(CUDictionary, OrdersKeysByTheCollation) {
  CUMutableDictionary dictionary;
  for (char const* const key : {"Z", "b", "A", "a", "2", "10", "1", "_"}) {
    dictionary.SetObjectForKey(Make(key), Make(key));
  }
  auto const keys = dictionary.AllKeys();
  ASSERT_EQ(keys->Count(), 8u);
  for (unsigned int i = 0; i < 8; ++i) {
    std::string const key = Utf8(keys->ObjectAtIndex(i));
    EXPECT_EQ(Value(dictionary, key), key) << "case makes another key";
    EXPECT_TRUE(i == 0 || *Make(Utf8(keys->ObjectAtIndex(i - 1))) < *Make(key)) << key;
  }
  dictionary.RemoveAllObjects();
  dictionary.SetObjectForKey(Make("composed"), Make("caf\u00E9"));
  dictionary.SetObjectForKey(Make("decomposed"), Make("cafe\u0301"));
  dictionary.SetObjectForKey(Make("hyphened"), Make("a\u00ADb"));
  EXPECT_EQ(Keys(dictionary), "a\u00ADb caf\u00E9");
  EXPECT_EQ(Value(dictionary, "caf\u00E9"), "decomposed");
  EXPECT_EQ(Value(dictionary, "ab"), "hyphened");
  dictionary.RemoveObjectForKey(Make("ab"));
  EXPECT_EQ(Keys(dictionary), "caf\u00E9");

  // The order is that of the virtual operation, also of the string that asks.
  struct AlwaysFirst : CUStringMac {
    bool operator<(CUStringMac const&) const override { return true; }
  };
  EXPECT_EQ(Utf8(dictionary.ObjectForKey(new AlwaysFirst)), "<null>");
}

TEST(CUDictionary, CopiesItsKeysAndHoldsNullValues) {
  CUMutableDictionary dictionary;
  auto const key = Make("key");
  dictionary.SetObjectForKey(nullptr, key);
  *key = *Make("changed");
  *dynamic_cast<CUStringMac*>(dictionary.AllKeys()->LastObject().Get()) = *Make("changed");
  EXPECT_EQ(Keys(dictionary), "key") << "keys are copies, on the way in and on the way out";
  EXPECT_TRUE(dictionary.ObjectForKey(Make("key")) == nullptr);

  dictionary.SetObjectForKey(Make("nothing"), nullptr);
  dictionary.RemoveObjectForKey(nullptr);
  dictionary.RemoveObjectForKey(Make("missing"));
  EXPECT_TRUE(dictionary.ObjectForKey(nullptr) == nullptr);
  EXPECT_EQ(Utf8(dictionary.Description()), "{\n\tKey:key,\tVal:<NULL>\n}");
  dictionary.RemoveObjectForKey(Make("key"));
  EXPECT_NE(dynamic_cast<CUMutableArray*>(dictionary.AllKeys().Get()), nullptr);
  EXPECT_EQ(dictionary.AllKeys()->Count(), 0u);
}

TEST(CUDictionary, SharesItsValuesAndIsNotCopiedByAssignment) {
  Object const value = new CountedObject(1);
  Dictionary const source = new CUMutableDictionary;
  source->SetObjectForKey(value, Make("a"));
  source->SetObjectForKey(nullptr, Make("b"));
  CUDictionary shallow((CUSharedPtr<CUDictionary>(source)));
  CUMutableDictionary copy(*source);
  CUMutableDictionary other((CUSharedPtr<CUDictionary>(source)));
  EXPECT_EQ(CountOf(*value), 5);
  source->RemoveAllObjects();
  EXPECT_EQ(Keys(shallow), "a b");
  EXPECT_TRUE(shallow.ObjectForKey(Make("a")) == value);
  copy = *source;
  static_cast<CUDictionary&>(copy) = *source;
  static_cast<CUObject&>(copy) = *source;
  EXPECT_EQ(Keys(copy), "a b");
}

TEST(CUDictionary, DescribesItsEntriesLineByLine) {
  Dictionary const dictionary = new CUMutableDictionary;
  EXPECT_EQ(Utf8(dictionary->Description()), "{\n}");
  dictionary->SetObjectForKey(Make("B\u00E4\nb"), Make("\u00E1"));
  dictionary->SetObjectForKey(new CUDictionary(dictionary), Make("b"));
  dictionary->SetObjectForKey(new Scripted([] { return nullptr; }), Make("c"));
  EXPECT_EQ(Utf8(dictionary->Description()),
            "{\n\tKey:\u00E1,\tVal:B\u00E4\nb\n"
            "\tKey:b,\tVal:{\n\tKey:\u00E1,\tVal:B\u00E4\nb\n}\n"
            "\tKey:c,\tVal:<NULL>\n}");

  // Values may change the dictionary meanwhile: shown is what it held at the call.
  dictionary->RemoveAllObjects();
  dictionary->SetObjectForKey(new Scripted([&dictionary] {
                                dictionary->RemoveAllObjects();
                                return Make("gone");
                              }),
                              Make("a"));
  dictionary->SetObjectForKey(Make("late"), Make("b"));
  EXPECT_EQ(Utf8(dictionary->Description()), "{\n\tKey:a,\tVal:gone\n\tKey:b,\tVal:late\n}");
  EXPECT_EQ(dictionary->Count(), 0u);
}

// Red when an old value is let go before the dictionary is in its new state: a dying object would
// be handed out, or an entry written that has gone.
TEST(CUMutableDictionary, MayBeUsedByValuesThatDie) {
  Dictionary const dictionary = new CUMutableDictionary;
  std::string seen;
  auto const dying = [&](std::function<void()> then) {
    return new Scripted(nullptr, [&, then] {
      seen = std::to_string(dictionary->Count()) + " " + Value(*dictionary, "key");
      then();
    });
  };
  dictionary->SetObjectForKey(dying([&] { dictionary->RemoveObjectForKey(Make("key")); }),
                              Make("key"));
  dictionary->SetObjectForKey(Make("new"), Make("key"));
  EXPECT_EQ(seen, "1 new");
  EXPECT_EQ(dictionary->Count(), 0u);

  dictionary->SetObjectForKey(dying([&] { dictionary->RemoveAllObjects(); }), Make("key"));
  dictionary->SetObjectForKey(Make("other"), Make("other"));
  dictionary->RemoveObjectForKey(Make("key"));
  EXPECT_EQ(seen, "1 <null>");
  EXPECT_EQ(dictionary->Count(), 0u);

  dictionary->SetObjectForKey(Make("other"), Make("other"));
  dictionary->SetObjectForKey(dying([&] { dictionary->SetObjectForKey(nullptr, Make("late")); }),
                              Make("key"));
  dictionary->RemoveAllObjects();
  EXPECT_EQ(seen, "0 <null>");
  EXPECT_EQ(dictionary->Count(), 0u) << "what came in meanwhile goes as well";
}

// Red when a failure loses a count, an entry or a key's text.
TEST(CUDictionary, OutOfMemoryLosesNothing) {
  Object const value = Make("value");
  Dictionary const dictionary = new CUMutableDictionary;
  dictionary->SetObjectForKey(value, Make("key"));
  dictionary->SetObjectForKey(nullptr, Make("b"));
  auto const added = Make("added");
  std::string const whole = "{\n\tKey:b,\tVal:<NULL>\n\tKey:key,\tVal:value\n}";
  CUSharedPtr<CUObject> made;
  struct {
    std::function<void()> work;
    int leastAllocations;
    std::string description;  // of what it makes
  } const cases[] = {
      {[&] { dictionary->SetObjectForKey(value, added); }, 2, ""},
      {[&] { made = dictionary->AllKeys(); }, 6, "{\n\tb\n\tkey\n}"},
      {[&] { made = dictionary->Description(); }, 10, whole},
      {[&] { made = new CUDictionary(dictionary); }, 5, whole},
      {[&] { made = new CUDictionary(*dictionary); }, 5, whole},
  };
  for (auto const& [work, least, description] : cases) {
    int const runs = FailEachAllocation(work, [&, &expected = description] {
      EXPECT_EQ(Keys(*dictionary), dictionary->Count() == 2 ? "b key" : "added b key");
      dictionary->RemoveObjectForKey(added);
      EXPECT_EQ(Utf8(dictionary->Description()), whole);
      if (made != nullptr) {
        EXPECT_EQ(Utf8(made->Description()), expected);
      }
      made = nullptr;
      EXPECT_EQ(CountOf(*value), 2);
    });
    EXPECT_GE(runs, least);
  }
}

// A key without text has no place in the order; all that matters is that nothing is lost or broken.
TEST(CUDictionary, LivesOnWithAKeyWithoutText) {
  int const alive = CountedObject::Live;
  auto const noText = Make("\xFF");
  for (int entriesBefore = 0; entriesBefore < 4; ++entriesBefore) {
    Dictionary const dictionary = new CUMutableDictionary;
    for (int i = 0; i < entriesBefore; ++i) {
      dictionary->SetObjectForKey(new CountedObject(i), Make(std::to_string(i)));
    }
    unsigned int const count = dictionary->Count();
    dictionary->SetObjectForKey(new CountedObject(9), noText);
    dictionary->SetObjectForKey(new CountedObject(10), Make("5"));
    EXPECT_FALSE(dictionary->ObjectForKey(noText) == nullptr);
    EXPECT_EQ(dictionary->AllKeys()->Count(), dictionary->Count());
    EXPECT_EQ(CUDictionary(*dictionary).Count(), dictionary->Count());
    EXPECT_NE(Utf8(dictionary->Description()), "<null>");
    unsigned int const before = dictionary->Count();
    EXPECT_GE(before, count);
    dictionary->RemoveObjectForKey(noText);
    EXPECT_EQ(dictionary->Count(), before - 1) << "one entry at most";
  }
  EXPECT_EQ(CountedObject::Live, alive);
}

// Random operations beside a std::map of the same keys, which sort alike in every locale.
TEST(CUMutableDictionary, AgreesWithAnOracle) {
  std::mt19937 random(20240607);
  int const alive = CountedObject::Live;
  {
    CUMutableDictionary dictionary;
    std::map<std::string, Object> oracle;
    for (int step = 0; step < 6000; ++step) {
      std::string const key = "key " + std::to_string(100 + random() % 60);
      Object const value = random() % 8 == 0 ? Object() : Object(new CountedObject(step));
      auto const operation = random() % 500;
      if (operation < 250) {
        dictionary.SetObjectForKey(value, Make(key));
        oracle[key] = value;
      } else if (operation < 499) {
        dictionary.RemoveObjectForKey(Make(key));
        oracle.erase(key);
      } else {
        dictionary.RemoveAllObjects();
        oracle.clear();
      }
      ASSERT_EQ(dictionary.Count(), oracle.size()) << "at step " << step;
      auto const found = oracle.find(key);
      ASSERT_TRUE(dictionary.ObjectForKey(Make(key)) ==
                  (found == oracle.end() ? Object() : found->second))
          << "at step " << step;
    }
    auto const keys = dictionary.AllKeys();
    ASSERT_EQ(keys->Count(), oracle.size());
    unsigned int i = 0;
    for (auto const& [key, value] : oracle) {
      EXPECT_EQ(Utf8(keys->ObjectAtIndex(i++)), key);
      if (value != nullptr) {
        EXPECT_EQ(CountOf(*value), 2);
      }
    }
  }
  EXPECT_EQ(CountedObject::Live, alive);
}
