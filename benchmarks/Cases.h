#pragma once

// What the benchmark programs share: how a case is registered and run, and the texts.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "QuillmereLib/strings/CUStringMac.h"

// Registers a case, named theme/case/peer, of which each iteration is one call. What the call
// returns is kept alive, and destroyed, within the iteration.
template <class Operation>
benchmark::internal::Benchmark* Measure(std::string const& name, Operation operation) {
  return benchmark::RegisterBenchmark(
      name.c_str(), [operation = std::move(operation)](benchmark::State& state) mutable {
        for (auto _ : state) {
          auto&& result = operation();
          benchmark::DoNotOptimize(result);
          benchmark::ClobberMemory();
        }
      });
}

// A case whose call must give `expected`, so that all peers are seen to do the same work.
template <class Operation, class Result>
benchmark::internal::Benchmark* MeasureChecked(std::string const& name, Result expected,
                                               Operation operation) {
  return benchmark::RegisterBenchmark(
      name.c_str(), [operation = std::move(operation), expected](benchmark::State& state) mutable {
        if (!(operation() == expected))
          state.SkipWithError("a result that is not that of the case");
        for (auto _ : state) {
          Result const result = operation();
          benchmark::DoNotOptimize(result);
          benchmark::ClobberMemory();
        }
      });
}

// Runs what `registerCases` registers. The locale is set before the first comparison, and the same
// for all: ICU, Qt and this library read it from the environment and keep it. A second thread lives
// as long as the program, since the C and C++ libraries use cheaper counts, locks and allocations
// while a process has but one.
inline int RunCases(int argc, char** argv, void (*registerCases)()) {
  setenv("LC_ALL", "en_US.UTF-8", 1);
  std::thread([] {
    for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
  }).detach();
  registerCases();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

// Texts of this library.
inline CUStringMac Ours(std::string const& text) {
  return CUStringMac(text.data(), static_cast<unsigned int>(text.size()), CUString_CharCode_UTF8);
}
inline CUSharedPtr<CUStringMac> SharedOurs(std::string const& text) {
  return new CUStringMac(text.c_str(), CUString_CharCode_UTF8);
}

enum class Language { Ascii, German, Czech };

// 1000 names of people, all different, in an order of chance that is the same on every run.
inline std::vector<std::string> Names(Language language) {
  struct Parts {
    std::vector<char const*> first, last;
  };
  static Parts const english = {
      {"Alice", "alan", "Bernard", "Beth", "Carol", "charles", "Daniel", "Diana", "Edward", "Emma"},
      {"Abbott", "Baker", "Carter", "Chandler", "de Witt", "Fletcher", "MacLeod", "O'Brien",
       "Smith-Jones", "Turner"}};
  static Parts const german = {{"Ägidius", "Anna", "Björn", "Bärbel", "Götz", "Jürgen", "jörg",
                                "Käthe", "Sören", "Übeltraut"},
                               {"Müller", "Mueller", "Weiß", "Weiss", "Größer", "Kröger", "Schäfer",
                                "Österreicher", "von Bülow", "Zöllner"}};
  static Parts const czech = {{"Řehoř", "Zdeněk", "Jiří", "Čeněk", "Šárka", "Lukáš", "Žofie",
                               "chrudoš", "Ondřej", "Tereza"},
                              {"Dvořák", "Černý", "Novotná", "Chládek", "Procházka", "Křížová",
                               "Šťastný", "Růžička", "Žižka", "Hašek"}};
  Parts const& parts = language == Language::Ascii    ? english
                       : language == Language::German ? german
                                                      : czech;
  std::vector<std::string> names;
  for (char const* last : parts.last) {
    for (char const* first : parts.first) {
      for (int number = 0; number < 10; ++number) {
        names.push_back(std::string(last) + " " + first + " " + std::to_string(number));
      }
    }
  }
  std::mt19937 chance(20010101);
  for (std::size_t i = names.size() - 1; i > 0; --i) std::swap(names[i], names[chance() % (i + 1)]);
  return names;
}

// `count` bytes of ASCII text.
inline std::string AsciiText(std::size_t count) {
  static std::string const sentence =
      "The second reel begins at frame 1440, Part B; its sound track was restored in 1998. ";
  std::string text;
  while (text.size() < count) text += sentence;
  text.resize(count);
  return text;
}

// `count` characters of Latin text with marks and of Chinese text, in UTF-8. All stand in the Basic
// Multilingual Plane, so that the count is also that of UTF-16 units.
inline std::string MixedText(std::size_t count) {
  static std::string const sentence =
      "Die zweite Rolle beginnt bei Bild 1440, \u00fcbermalt; zvuk byl o\u0161et\u0159en v roce "
      "1998. \u7b2c\u4e8c\u5377\u4ece\u7b2c\u4e00\u5343\u56db\u767e\u56db\u5341\u5e27\u5f00"
      "\u59cb\u3002 ";
  std::string text;
  std::size_t characters = 0;
  for (std::size_t i = 0; characters < count; i = (i + 1) % sentence.size()) {
    text += sentence[i];
    bool const last = (sentence[(i + 1) % sentence.size()] & 0xC0) != 0x80;
    if (last) ++characters;
  }
  return text;
}
