#include "ProgressBar.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace {

constexpr std::chrono::milliseconds kDrawingInterval(100);
constexpr unsigned int kPlainStep = 25;  // percent
constexpr unsigned int kGreatestBarWidth = 40;
constexpr unsigned int kLeastBarWidth = 5;

unsigned int TerminalWidth() {
  winsize size = {};
  bool const known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
  return known ? size.ws_col : 80;
}

}  // namespace

ProgressBar::ProgressBar() : m_onTerminal(isatty(STDOUT_FILENO) == 1) {}

void ProgressBar::Begin(unsigned int fileCount, unsigned long long byteCount) {
  m_fileCount = fileCount;
  m_byteCount = byteCount;
}

void ProgressBar::AddBytes(unsigned long long byteCount) {
  m_bytesDone += byteCount;
  Show();
}

void ProgressBar::AddFile() {
  ++m_filesDone;
  Show();
}

void ProgressBar::Hide() {
  if (!m_drawn) return;
  std::fputs("\r\033[K", stdout);
  std::fflush(stdout);
  m_drawn = false;
}

// Files count beside their bytes, so that empty ones move the bar too. While files are left it
// never says 100, though one of them may have grown since it was counted.
unsigned int ProgressBar::Percent() const {
  if (m_filesDone >= m_fileCount) return 100;
  double const all = static_cast<double>(m_byteCount) + m_fileCount;
  double const done = static_cast<double>(m_bytesDone) + m_filesDone;
  return std::min(99u, static_cast<unsigned int>(std::min(done / all, 1.0) * 100));
}

void ProgressBar::Show() {
  if (m_onTerminal) {
    auto const now = std::chrono::steady_clock::now();
    if (m_drawn && now - m_lastDrawing < kDrawingInterval) return;
    m_lastDrawing = now;
    Draw(Percent());
    return;
  }
  unsigned int const percent = Percent();
  if (percent / kPlainStep == m_lastPercent / kPlainStep) return;
  m_lastPercent = percent;
  std::printf("%u %%, %u of %u files\n", percent, m_filesDone, m_fileCount);
}

void ProgressBar::Draw(unsigned int percent) {
  std::string const text = std::to_string(percent) + " %, " + std::to_string(m_filesDone) + " of " +
                           std::to_string(m_fileCount) + " files";
  // The last column stays free: a terminal may go to the next line when it is filled.
  unsigned int const width = TerminalWidth() - 1;
  auto const taken = static_cast<unsigned int>(text.size()) + 3;  // with brackets and a space
  std::string line = text.substr(0, width);
  if (width >= taken + kLeastBarWidth) {
    unsigned int const room = std::min(width - taken, kGreatestBarWidth);
    unsigned int const filled = room * percent / 100;
    line = "[" + std::string(filled, '#') + std::string(room - filled, '-') + "] " + text;
  }
  std::printf("\r%s\033[K", line.c_str());
  std::fflush(stdout);
  m_drawn = true;
}
