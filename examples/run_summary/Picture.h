#pragma once

// The picture of runs over time, as SVG.

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

struct Run {
  double start, duration;  // in seconds; below 0 where the cell is another text
  bool good;
};

// A bar for each run, at its time and as high as it took long; those that failed are red. At least
// one.
inline std::string Draw(std::vector<Run> const& runs) {
  double first = runs.front().start, last = first + 1, longest = 0.001;
  for (Run const& run : runs) {
    first = std::min(first, run.start);
    last = std::max(last, run.start);
    longest = std::max(longest, run.duration);
  }
  std::string svg =
      "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 640 240'>\n"
      "<rect width='640' height='240' fill='white'/>\n";
  for (Run const& run : runs) {
    char bar[128];
    double const height = 200 * run.duration / longest;
    std::snprintf(bar, sizeof bar, "<rect x='%.1f' y='%.1f' width='4' height='%.1f' fill='%s'/>\n",
                  10 + 610 * (run.start - first) / (last - first), 230 - height, height,
                  run.good ? "steelblue" : "firebrick");
    svg += bar;
  }
  return svg + "</svg>\n";
}
