#pragma once

// The report of a run, a UTF-8 file of lines with tabs between their fields, and the same findings
// as a table.

#include <QuillmereLib/QuillmereLib.h>

#include <string>
#include <vector>

#include "Failures.h"
#include "FileTask.h"

// All that a run found out.
struct RunResult {
  std::vector<std::string> paths;            // as they were given
  std::vector<CUSharedPtr<FileTask>> files;  // in the order of the walk
  CUSharedPtr<CUMutableArray> findings;      // in the order of showing
  unsigned long linksToFolders = 0;
  unsigned long long bytes = 0;     // of all findings
  CUSharedPtr<CUStringMac> output;  // null where nothing was to be copied
  unsigned int filesCopied = 0;
  unsigned long long bytesCopied = 0;
  bool stopped = false;  // by the user, before all was done
};

// Says why no report can go to `path`, or gives an empty text: its folder must exist, and a file
// that is there already is replaced only if it begins as a report does, or if `overwrite` is set.
std::string WhyNoReport(CUSharedPtr<CUStringMac> path, bool overwrite);

// Writes the report, or says why it could not be; asks WhyNoReport again first. The last line
// "end of report" stands in complete reports only.
std::string WriteReport(CUSharedPtr<CUStringMac> path, bool overwrite, RunResult const& result,
                        std::vector<Failures::Failure> const& failures);
