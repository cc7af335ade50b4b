#pragma once

// ProgressBar, how far the run is: a bar drawn over itself on a terminal, a few plain lines
// elsewhere.

#include <chrono>
#include <string>

// Works on standard output. One thread at a time.
class ProgressBar {
 public:
  ProgressBar();

  void Begin(unsigned int fileCount, unsigned long long byteCount);

  // Another `byteCount` bytes have been read. Cheap: the bar is drawn ten times a second at most.
  void AddBytes(unsigned long long byteCount);

  void AddFile();

  // Takes the bar off the terminal; the next step draws it again.
  void Hide();

 private:
  void Show();
  void Draw(unsigned int percent);
  unsigned int Percent() const;

  bool m_onTerminal;
  bool m_drawn = false;
  std::chrono::steady_clock::time_point m_lastDrawing;
  unsigned int m_lastPercent = 0;  // of the last plain line
  unsigned int m_fileCount = 0;
  unsigned int m_filesDone = 0;
  unsigned long long m_byteCount = 0;
  unsigned long long m_bytesDone = 0;
};
