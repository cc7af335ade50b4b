#pragma once

// What went wrong in a run: told at once on standard error, and kept for the report.

#include <string>
#include <vector>

#include "ProgressBar.h"

class Failures {
 public:
  struct Failure {
    std::string visiblePath;
    std::string reason;
  };

  // Takes `bar` off the screen before a line is written there. The bar must live as long.
  explicit Failures(ProgressBar& bar) : m_bar(bar) {}

  void Add(std::string const& path, std::string const& reason);

  std::vector<Failure> const& All() const { return m_failures; }

 private:
  ProgressBar& m_bar;
  std::vector<Failure> m_failures;
};

// Writes "processing_run: ..." as one line on standard error.
void WriteProblem(std::string const& problem);
