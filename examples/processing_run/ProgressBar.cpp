#include "ProgressBar.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>

namespace {

constexpr std::chrono::milliseconds kDrawingInterval(100);
constexpr unsigned int kPlainStep = 25;  // percent
constexpr std::size_t kGreatestBarWidth = 40;
constexpr std::size_t kLeastBarWidth = 5;
constexpr double kLeastRateSeconds = 0.5;

unsigned int TerminalWidth() {
  winsize size = {};
  bool const known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
  return known ? size.ws_col : 80;
}

// "999 B", "1.5 MB"
std::string SizeText(unsigned long long bytes) {
  constexpr char const* kUnits[] = {"kB", "MB", "GB", "TB"};
  if (bytes < 1000) return std::to_string(bytes) + " B";
  double size = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  for (; size >= 999.95 && unit + 1 < std::size(kUnits); ++unit) size /= 1000;
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", size, kUnits[unit]);
  return text;
}

// "0:07", "1:02:03"; a begun second counts.
std::string TimeText(double seconds) {
  constexpr double kMost = 99 * 3600;
  auto const whole = static_cast<unsigned int>(std::ceil(std::min(seconds, kMost)));
  char text[32];
  if (whole < 3600) {
    std::snprintf(text, sizeof text, "%u:%02u", whole / 60, whole % 60);
  } else {
    std::snprintf(text, sizeof text, "%u:%02u:%02u", whole / 3600, whole / 60 % 60, whole % 60);
  }
  return text;
}

}  // namespace

ProgressBar::ProgressBar() : m_onTerminal(isatty(STDOUT_FILENO) == 1) {}

void ProgressBar::Begin(std::string const& label, unsigned int fileCount,
                        unsigned long long byteCount) {
  m_label = label;
  m_fileCount = fileCount;
  m_byteCount = byteCount;
  m_filesDone = 0;
  m_bytesDone = 0;
  m_lastPercent = 0;
  m_beginning = std::chrono::steady_clock::now();
}

void ProgressBar::SetBytes(unsigned long long bytesDone) {
  m_bytesDone = bytesDone;
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
    bool const finished = m_filesDone >= m_fileCount;
    if (m_drawn && !finished && now - m_lastDrawing < kDrawingInterval) return;
    m_lastDrawing = now;
    Draw(Percent(), now);
    return;
  }
  unsigned int const percent = Percent();
  if (percent / kPlainStep == m_lastPercent / kPlainStep) return;
  m_lastPercent = percent;
  std::printf("%s\n", Counts(percent).c_str());
}

std::string ProgressBar::Counts(unsigned int percent) const {
  return m_label + std::to_string(percent) + " %, " + std::to_string(m_filesDone) + " of " +
         std::to_string(m_fileCount) + " files";
}

// By the mean rate since the beginning, once there is one.
std::string ProgressBar::Speed(std::chrono::steady_clock::time_point now) const {
  std::string bytes = ", " + SizeText(m_bytesDone) + " of " + SizeText(m_byteCount);
  double const seconds = std::chrono::duration<double>(now - m_beginning).count();
  if (seconds < kLeastRateSeconds || m_bytesDone == 0) return bytes;
  double const rate = static_cast<double>(m_bytesDone) / seconds;
  double const left =
      m_byteCount <= m_bytesDone ? 0 : static_cast<double>(m_byteCount - m_bytesDone) / rate;
  return bytes + ", " + SizeText(static_cast<unsigned long long>(rate)) + "/s, " + TimeText(left) +
         " left";
}

// Where the line has no room for all, the speed goes first, then the bar.
void ProgressBar::Draw(unsigned int percent, std::chrono::steady_clock::time_point now) {
  // The last column stays free: a terminal may go to the next line when it is filled.
  std::size_t const width = TerminalWidth() - 1;
  constexpr std::size_t kAround = 3;  // brackets and a space
  std::string text = Counts(percent);
  std::string const speed = Speed(now);
  if (width >= text.size() + speed.size() + kAround + kLeastBarWidth) text += speed;
  std::string line = text.substr(0, width);
  if (width >= text.size() + kAround + kLeastBarWidth) {
    std::size_t const room = std::min(width - text.size() - kAround, kGreatestBarWidth);
    std::size_t const filled = room * percent / 100;
    line = "[" + std::string(filled, '#') + std::string(room - filled, '-') + "] " + text;
  }
  std::printf("\r%s\033[K", line.c_str());
  std::fflush(stdout);
  m_drawn = true;
}
