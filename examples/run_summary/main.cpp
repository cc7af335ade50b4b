// run_summary: reads a CSV file of runs, as CUPerformanceLogger keeps them, prints how long the
// runs of each kind took, and draws them over time.
//
//   run_summary CSV [SVG]

#include <QuillmereLib/QuillmereLib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <numeric>

#include "Csv.h"
#include "Picture.h"

namespace {

std::string ReadFile(char const* name) {
  CUStringMac path(name, CUString_CharCode_UTF8);
  CUFileStream file(&path, CUStream_FileMode_Open, CUStream_FileAccess_Read, false);
  std::string text(file.Length(), '\0');
  auto* const bytes = reinterpret_cast<unsigned char*>(&text[0]);
  text.resize(file.Read(bytes, text.size(), 0, CUStream_Seek_Origin_Begin));
  return text;
}

// A file is made in a folder, and a bare name has none.
bool WriteFile(std::string name, std::string text) {
  if (name.find('/') == std::string::npos) name.insert(0, "./");
  CUStringMac path(name.c_str(), CUString_CharCode_UTF8);
  CUFileStream file(&path, CUStream_FileMode_Create, CUStream_FileAccess_Write, false);
  auto* const bytes = reinterpret_cast<unsigned char*>(&text[0]);
  return file.Write(bytes, text.size(), 0, CUStream_Seek_Origin_Begin) == text.size();
}

// Dates and durations stand behind an apostrophe, as in '2026/11/25 01:14:08.600.
Run RunOf(Row const& row) {
  std::tm at = {};
  at.tm_isdst = -1;
  char const* const rest = strptime(row[1].c_str(), "'%Y/%m/%d %H:%M:%S", &at);
  double hours = 0, minutes = 0, seconds = 0;
  bool const read = std::sscanf(row[3].c_str(), "'%lf:%lf:%lf", &hours, &minutes, &seconds) == 3;
  return {rest == nullptr ? -1 : static_cast<double>(std::mktime(&at)) + std::atof(rest),
          read ? (hours * 60 + minutes) * 60 + seconds : -1, row[0] == "SUCCESS"};
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc < 2 || argc > 3) return std::fputs("usage: run_summary CSV [SVG]\n", stderr), 2;
  std::vector<Run> runs;
  std::map<std::string, std::vector<double>> kinds;  // durations by the format or mode of the run
  for (Row const& row : ParseCsv(ReadFile(argv[1]))) {
    if (row.size() < 8) continue;
    Run const run = RunOf(row);
    if (run.start < 0 || run.duration < 0) continue;  // the header, for one
    runs.push_back(run);
    kinds[row[7]].push_back(run.duration);
  }
  std::printf("runs       total        mean     longest  kind\n");
  for (auto const& [kind, seconds] : kinds) {
    double const total = std::accumulate(seconds.begin(), seconds.end(), 0.0);
    std::string shown = kind.empty() ? "-" : kind;
    std::replace_if(
        shown.begin(), shown.end(), [](unsigned char c) { return c < ' '; }, ' ');
    std::printf("%4zu %11.3f %11.3f %11.3f  %s\n", seconds.size(), total,
                total / static_cast<double>(seconds.size()),
                *std::max_element(seconds.begin(), seconds.end()), shown.c_str());
  }
  if (argc == 2 || runs.empty() || WriteFile(argv[2], Draw(runs))) return 0;
  std::fputs("run_summary: the picture could not be written\n", stderr);
  return 1;
} catch (unsigned int code) {  // one of _CUErrorContents
  std::fprintf(stderr, "run_summary: a file was refused with error code %u\n", code);
  return 1;
}
