#pragma once

// The walk through the given paths, which finds the files of a run.

#include <QuillmereLib/QuillmereLib.h>

#include <string>
#include <vector>

#include "Failures.h"
#include "FileTask.h"

struct WalkResult {
  std::vector<CUSharedPtr<FileTask>> files;  // folder by folder
  std::vector<std::string> folders;          // their places in the output, the outer ones first
  unsigned long long bytes = 0;              // of all files
  unsigned long linksToFolders = 0;          // met and not followed
  bool stopped = false;                      // by the user, before the end
};

// Finds every file at and under `paths`. What is neither file nor folder, or cannot be looked at,
// becomes a failure, and the walk goes on.
WalkResult WalkPaths(std::vector<std::string> const& paths, Failures& failures);
