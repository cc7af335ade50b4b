#pragma once

// FileExamination, which reads a file through and says what it found.

#include <QuillmereLib/QuillmereLib.h>

#include <functional>
#include <string>
#include <vector>

#include "Checksum.h"
#include "FileTask.h"

// One for all files of a thread: it keeps its buffer.
class FileExamination {
 public:
  // Tells `onBytes` of each portion that it has read.
  explicit FileExamination(std::function<void(unsigned long long)> onBytes);

  // Gives the task its finding, or the reason why the file cannot be read to its end, or neither
  // when the user wants to stop.
  void Examine(FileTask& task);

 private:
  void ExamineOpened(FileTask& task, CUSharedPtr<CUFileStream> file);
  unsigned long long ReadPortion(CUStream& stream, unsigned long long start, Checksum& checksum);

  std::function<void(unsigned long long)> m_onBytes;
  std::vector<unsigned char> m_block;
};
