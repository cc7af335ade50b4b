#pragma once

// FileExamination, which reads a file through and says what it found.

#include <QuillmereLib/QuillmereLib.h>

#include <string>
#include <vector>

#include "Checksum.h"
#include "Failures.h"
#include "Finding.h"
#include "ProgressBar.h"

// One for all files of a run: it keeps its buffer. One thread at a time.
class FileExamination {
 public:
  // Both must live as long.
  FileExamination(ProgressBar& bar, Failures& failures);

  // Null where the file cannot be read to its end, which then is among the failures.
  CUSharedPtr<Finding> Examine(CUSharedPtr<CUStringMac> path);

 private:
  CUSharedPtr<Finding> ExamineOpened(CUStringMac& path, CUSharedPtr<CUFileStream> file);
  unsigned long long ReadPortion(CUStream& stream, unsigned long long start, Checksum& checksum);
  void AddBrokenOff(CUStringMac& path, unsigned long long bytesRead, unsigned long long length);

  ProgressBar& m_bar;
  Failures& m_failures;
  std::vector<unsigned char> m_block;
};
