#include "Failures.h"

#include <cstdio>

#include "VisibleText.h"

void Failures::Add(std::string const& path, std::string const& reason) {
  std::string const visible = path.empty() ? "\"\"" : VisibleText(path);
  m_bar.Hide();
  WriteProblem(visible + ": " + reason);
  m_failures.push_back({visible, reason});
}

void WriteProblem(std::string const& problem) {
  std::fprintf(stderr, "processing_run: %s\n", problem.c_str());
}
