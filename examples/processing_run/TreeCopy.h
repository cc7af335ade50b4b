#pragma once

// TreeCopy, which copies the files of a run into the output folder.

#include <QuillmereLib/QuillmereLib.h>

#include <set>
#include <string>

#include "Failures.h"
#include "FolderWalk.h"
#include "ProgressBar.h"

class TreeCopy {
 public:
  // `bar` and `failures` must live as long.
  TreeCopy(CUSharedPtr<CUStringMac> output, bool overwrite, ProgressBar& bar, Failures& failures)
      : m_output(output), m_overwrite(overwrite), m_bar(bar), m_failures(failures) {}

  // Creates the folders of the walk below the output folder, and copies the files that could be
  // examined. What fails becomes a failure, and copying goes on. Returns false when the user wants
  // to stop; then no file is left that is not complete.
  bool Run(WalkResult const& walk);

  unsigned int FilesCopied() const { return m_filesCopied; }
  unsigned long long BytesCopied() const { return m_bytesCopied; }

 private:
  bool CreateFolder(std::string const& place);
  bool CopyFile(FileTask& task, unsigned long long bytesBefore);
  CUSharedPtr<CUStringMac> PathOf(std::string const& place);
  std::string WhyFailed(CUSharedPtr<CUStringMac> destination, unsigned long long size,
                        CUResult result);

  CUSharedPtr<CUStringMac> m_output;
  bool m_overwrite;
  ProgressBar& m_bar;
  Failures& m_failures;
  std::set<std::string> m_takenPlaces;
  unsigned int m_filesCopied = 0;
  unsigned long long m_bytesCopied = 0;
};
