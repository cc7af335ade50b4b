#pragma once

// The examination of all files of a run, on several threads.

#include <vector>

#include "Failures.h"
#include "FileTask.h"
#include "ProgressBar.h"

// Returns when every task has been examined, or no thread works any more after the user wanted to
// stop. Failures are told in the order of the tasks, whichever thread is the faster. Throws
// std::runtime_error where not a single thread can be started.
void ExamineFiles(std::vector<CUSharedPtr<FileTask>> const& tasks, unsigned int threadCount,
                  ProgressBar& bar, Failures& failures);
