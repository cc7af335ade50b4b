// The dictionary of objects beside ordered maps with the same order of keys.

#include <unicode/ucol.h>

#include <QCollator>
#include <QMap>
#include <map>
#include <memory>

#include "QuillmereLib/collections/CUDictionary.h"
#include "benchmarks/Cases.h"

namespace {

using Texts = std::vector<std::string>;
using Value = CUSharedPtr<CUObject>;
using Key = CUSharedPtr<CUStringMac>;

// Inserting all names in a new map, with a copy of each key; replacing each value; and looking each
// one up by a key of another object. `make` builds an empty map.
template <class Keys, class Make, class Set, class Get>
void RegisterMap(std::string const& group, std::string const& peer, Keys const& keys, Make make,
                 Set set, Get get) {
  Value const value(new CUObject);
  Measure("dictionaries/insert_" + group + "/" + peer, [=] {
    auto map = make();
    for (auto const& key : keys) set(*map, key, value);
    return map;
  });
  std::shared_ptr full(make());
  for (auto const& key : keys) set(*full, key, value);
  Measure("dictionaries/replace_" + group + "/" + peer, [=] {
    for (auto const& key : keys) set(*full, key, value);
    return 0;
  });
  Measure("dictionaries/lookup_" + group + "/" + peer, [=] {
    std::size_t found = 0;
    for (auto const& key : keys) found += get(*full, key) != nullptr ? 1 : 0;
    if (found != keys.size()) std::abort();
    return found;
  });
}

void RegisterOurs(std::string const& group, Texts const& texts) {
  std::vector<Key> keys;
  for (std::string const& text : texts) {
    keys.push_back(SharedOurs(text));
  }
  RegisterMap(
      group, "quillmere", keys, [] { return std::make_unique<CUMutableDictionary>(); },
      [](CUMutableDictionary& map, Key const& key, Value const& value) {
        map.SetObjectForKey(value, key);
      },
      [](CUMutableDictionary& map, Key const& key) { return map.ObjectForKey(key); });
}

// Orders by one collator, which is never closed.
struct CollatedLess {
  bool operator()(std::u16string const& first, std::u16string const& second) const {
    return ucol_strcoll(collator, first.data(), static_cast<int32_t>(first.size()), second.data(),
                        static_cast<int32_t>(second.size())) == UCOL_LESS;
  }
  UCollator* collator;
};

void RegisterIcu(std::string const& group, Texts const& texts) {
  UErrorCode status = U_ZERO_ERROR;
  UCollator* const collator = ucol_open(nullptr, &status);
  ucol_setAttribute(collator, UCOL_NORMALIZATION_MODE, UCOL_ON, &status);
  using Map = std::map<std::u16string, Value, CollatedLess>;
  std::vector<std::u16string> keys;
  for (std::string const& text : texts) keys.push_back(QString(text.c_str()).toStdU16String());
  RegisterMap(
      group, "std_map_icu", keys,
      [collator] { return std::make_unique<Map>(CollatedLess{collator}); },
      [](Map& map, std::u16string const& key, Value const& value) {
        map.insert_or_assign(key, value);
      },
      [](Map& map, std::u16string const& key) {
        auto const found = map.find(key);
        return found == map.end() ? Value() : found->second;
      });
}

// Qt's map takes no order of its own, so that its keys bring theirs; QString shares its text.
struct CollatedString {
  QString text;
  bool operator<(CollatedString const& other) const {
    static QCollator const collator;
    return collator.compare(text, other.text) < 0;
  }
};

void RegisterQt(std::string const& group, Texts const& texts) {
  using Map = QMap<CollatedString, Value>;
  std::vector<CollatedString> keys;
  for (std::string const& text : texts) keys.push_back({QString(text.c_str())});
  RegisterMap(
      group, "qmap_qcollator", keys, [] { return std::make_unique<Map>(); },
      [](Map& map, CollatedString const& key, Value const& value) { map.insert(key, value); },
      [](Map& map, CollatedString const& key) { return map.value(key); });
}

void RegisterAll() {
  for (auto const& [group, language] :
       {std::pair("ascii", Language::Ascii), std::pair("german", Language::German),
        std::pair("czech", Language::Czech)}) {
    Texts const names = Names(language);
    RegisterOurs(group, names);
    RegisterIcu(group, names);
    RegisterQt(group, names);
  }
}

}  // namespace

int main(int argc, char** argv) { return RunCases(argc, argv, RegisterAll); }
