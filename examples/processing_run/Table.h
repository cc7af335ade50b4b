#pragma once

// What a run shows on standard output.

#include <QuillmereLib/QuillmereLib.h>

#include <string>

#include "Report.h"

// The given path with its components, its names and its drive.
void PrintGivenPath(std::string const& path);

// Where the run writes, and the drive there.
void PrintOutput(CUSharedPtr<CUStringMac> path);

// The findings in aligned columns, and a line that sums them up.
void PrintTable(RunResult const& result, std::size_t failureCount);
