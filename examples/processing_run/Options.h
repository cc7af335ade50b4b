#pragma once

// What the command line asks for.

#include <QuillmereLib/QuillmereLib.h>

#include <string>
#include <vector>

#include "Finding.h"

struct Options {
  std::vector<std::string> paths;  // without trailing slashes; never empty
  CUSharedPtr<CUStringMac> reportFile;
  CUSharedPtr<CUStringMac> output;  // the folder for copies; null for none
  FindingKey sortKey = FindingKey::kName;
  bool descending = false;
  bool overwrite = false;
  bool recycle = false;          // the output folder, at the end
  bool systemReport = false;     // beside the logs
  unsigned int threadCount = 0;  // of the examination; at least 1 when parsed
  bool help = false;
};

// Fills `options`, with the defaults for what is not given. Returns what is wrong with the command
// line, or an empty text.
std::string ParseOptions(int argc, char const* const* argv, Options& options);

extern char const* const kHelpText;
