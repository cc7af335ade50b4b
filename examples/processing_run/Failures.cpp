#include "Failures.h"

#include <cstdio>

#include "RunLogs.h"
#include "VisibleText.h"

void Failures::Add(std::string const& path, std::string const& reason) {
  std::string const visible = path.empty() ? "\"\"" : VisibleText(path);
  m_bar.Hide();
  WriteProblem(visible + ": " + reason);
  CULog::Write(kLogError, "%s: %s", visible.c_str(), reason.c_str());
  m_failures.push_back({visible, reason});
}

void WriteProblem(std::string const& problem) {
  std::fprintf(stderr, "processing_run: %s\n", problem.c_str());
}
