#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "QuillmereLib/collections/CUDictionary.h"
#include "tests/support/CountedObject.h"
#include "tests/support/Strings.h"

namespace {

using Object = CUSharedPtr<CUObject>;
using Dictionary = CUSharedPtr<CUMutableDictionary>;

std::string Keys(CUDictionary& dictionary) {
  std::string text;
  auto const keys = dictionary.AllKeys();
  for (Object const& key : *keys->GetInternalArray()) text += Utf8(key) + ' ';
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
  EXPECT_EQ(dictionary.Count(), 8u) << "case makes another key";
  auto const keys = dictionary.AllKeys();
  std::string before;
  for (Object const& key : *keys->GetInternalArray()) {
    EXPECT_EQ(Value(dictionary, Utf8(key)), Utf8(key));
    EXPECT_TRUE(*Make(before) < *Make(Utf8(key))) << Utf8(key);
    before = Utf8(key);
  }
  dictionary.RemoveAllObjects();
  dictionary.SetObjectForKey(Make("composed"), Make("caf\u00E9"));
  dictionary.SetObjectForKey(Make("decomposed"), Make("cafe\u0301"));
  dictionary.SetObjectForKey(Make("hyphened"), Make("a\u00ADb"));
  EXPECT_EQ(Keys(dictionary), "a\u00ADb caf\u00E9 ");
  EXPECT_EQ(Value(dictionary, "caf\u00E9") + Value(dictionary, "ab"), "decomposedhyphened");
  dictionary.RemoveObjectForKey(Make("ab"));
  EXPECT_EQ(Keys(dictionary), "caf\u00E9 ");

  // The order is that of the virtual operation.
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
  dictionary.SetObjectForKey(Make("nothing"), nullptr);
  dictionary.RemoveObjectForKey(nullptr);
  dictionary.RemoveObjectForKey(Make("missing"));
  EXPECT_EQ(dictionary.ObjectForKey(nullptr), nullptr);
  EXPECT_EQ(Utf8(dictionary.Description()), "{\n\tKey:key,\tVal:<NULL>\n}")
      << "keys are copies, on the way in and on the way out";
}

TEST(CUDictionary, SharesItsValuesAndIsNotCopiedByAssignment) {
  Object const value = new CountedObject(1);
  Dictionary const source = new CUMutableDictionary;
  source->SetObjectForKey(value, Make("a"));
  source->SetObjectForKey(nullptr, Make("b"));
  CUDictionary shallow((CUSharedPtr<CUDictionary>(source)));
  CUMutableDictionary copy(*source);
  EXPECT_EQ(CountOf(*value), 4);
  source->RemoveAllObjects();
  copy = *source;
  static_cast<CUDictionary&>(copy) = *source;
  static_cast<CUObject&>(copy) = *source;
  EXPECT_EQ(Keys(copy) + Keys(shallow), "a b a b ");
  EXPECT_EQ(shallow.ObjectForKey(Make("a")), value);
}

TEST(CUDictionary, DescribesItsEntriesLineByLine) {
  Dictionary const dictionary = new CUMutableDictionary;
  dictionary->SetObjectForKey(Make("B\u00E4\nb"), Make("\u00E1"));
  dictionary->SetObjectForKey(new CUDictionary(dictionary), Make("b"));
  // Values may change the dictionary meanwhile: shown is what it held at the call.
  auto const emptying = [&dictionary] {
    dictionary->RemoveAllObjects();
    return CUSharedPtr<CUStringMac>();
  };
  dictionary->SetObjectForKey(new Scripted(emptying), Make("c"));
  dictionary->SetObjectForKey(Make("last"), Make("d"));
  EXPECT_EQ(Utf8(dictionary->Description()),
            "{\n\tKey:\u00E1,\tVal:B\u00E4\nb\n"
            "\tKey:b,\tVal:{\n\tKey:\u00E1,\tVal:B\u00E4\nb\n}\n"
            "\tKey:c,\tVal:<NULL>\n\tKey:d,\tVal:last\n}");
  EXPECT_EQ(dictionary->Count(), 0u);
}

// Red when an old value is let go before the dictionary is in its new state: a dying object would
// be handed out, or an entry written that has gone.
TEST(CUMutableDictionary, MayBeUsedByValuesThatDie) {
  Dictionary const dictionary = new CUMutableDictionary;
  std::string seen;
  auto const setDying = [&](std::function<void()> then) {
    auto const die = [&, then] {
      seen = std::to_string(dictionary->Count()) + " " + Value(*dictionary, "key");
      then();
    };
    dictionary->SetObjectForKey(new Scripted(nullptr, die), Make("key"));
  };
  setDying([&] { dictionary->RemoveObjectForKey(Make("key")); });
  dictionary->SetObjectForKey(Make("new"), Make("key"));
  EXPECT_EQ(seen, "1 new");
  EXPECT_EQ(dictionary->Count(), 0u);

  dictionary->SetObjectForKey(Make("other"), Make("other"));
  setDying([&] { dictionary->RemoveAllObjects(); });
  dictionary->RemoveObjectForKey(Make("key"));
  EXPECT_EQ(seen, "1 <null>");
  EXPECT_EQ(dictionary->Count(), 0u);

  dictionary->SetObjectForKey(Make("other"), Make("other"));
  setDying([&] { dictionary->SetObjectForKey(nullptr, Make("late")); });
  dictionary->RemoveAllObjects();
  EXPECT_EQ(seen, "0 <null>");
  EXPECT_EQ(dictionary->Count(), 0u) << "what came in meanwhile goes as well";
}

// A key without text has no place in the order; all that matters is that nothing is lost or broken.
TEST(CUDictionary, LivesOnWithAKeyWithoutText) {
  int const alive = CountedObject::Live;
  auto const noText = Make("\xFF");
  for (int entriesBefore = 0; entriesBefore < 4; ++entriesBefore) {
    CUMutableDictionary dictionary;
    for (int i = 0; i < entriesBefore; ++i) {
      dictionary.SetObjectForKey(new CountedObject(i), Make(std::to_string(i)));
    }
    dictionary.SetObjectForKey(new CountedObject(9), noText);
    dictionary.SetObjectForKey(new CountedObject(10), Make("5"));
    unsigned int const count = dictionary.Count();
    EXPECT_NE(dictionary.ObjectForKey(noText), nullptr);
    EXPECT_EQ(CUDictionary(dictionary).AllKeys()->Count(), count);
    EXPECT_NE(Utf8(dictionary.Description()), "<null>");
    dictionary.RemoveObjectForKey(noText);
    EXPECT_EQ(dictionary.Count(), count - 1) << "one entry at most";
  }
  EXPECT_EQ(CountedObject::Live, alive);
}
