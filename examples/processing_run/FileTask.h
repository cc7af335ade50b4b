#pragma once

// FileTask, one file of a run, from the walk that finds it to the report.

#include <QuillmereLib/QuillmereLib.h>

#include <string>
#include <utility>

#include "Finding.h"

// Wanders between threads by way of queues; only the thread that has it at the moment touches it.
struct FileTask : public CUObject {
  FileTask(CUSharedPtr<CUStringMac> filePath, std::string placeInOutput)
      : path(std::move(filePath)), place(std::move(placeInOutput)) {}

  CUSharedPtr<CUStringMac> path;
  std::string place;  // its path below the output folder

  // What its examination gives: one of both, or neither where the run was stopped.
  CUSharedPtr<Finding> finding;
  std::string failure;
  unsigned long long microseconds = 0;  // that it took

  bool isBack = false;  // from the examining thread
};
