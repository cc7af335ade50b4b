#pragma once

// The two forms of the sweeps, and the figures that they print.

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

// The long form, of scripts/reliability --full; else the one that ctest runs.
inline bool IsFull() { return std::getenv("QUILLMERE_RELIABILITY_FULL") != nullptr; }

// A line of a table in docs/reliability.md.
[[gnu::format(printf, 1, 2)]] inline void PrintFigures(char const* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::fputs("| ", stdout);
  std::vprintf(format, arguments);
  std::fputs(" |\n", stdout);
  va_end(arguments);
}
