#pragma once

// ProgressBar, how far the run is: on a terminal a bar drawn over itself, with bytes, their rate
// and the time that is left; a few plain lines elsewhere.

#include <chrono>
#include <string>

// Works on standard output. One thread at a time.
class ProgressBar {
 public:
  ProgressBar();

  // Starts from nothing. `label` stands before the numbers.
  void Begin(std::string const& label, unsigned int fileCount, unsigned long long byteCount);

  // So many bytes are done by now. Cheap: the bar is drawn ten times a second at most.
  void SetBytes(unsigned long long bytesDone);

  void AddFile();

  // Takes the bar off the terminal; the next step draws it again.
  void Hide();

 private:
  void Show();
  void Draw(unsigned int percent, std::chrono::steady_clock::time_point now);
  unsigned int Percent() const;
  std::string Counts(unsigned int percent) const;
  std::string Speed(std::chrono::steady_clock::time_point now) const;

  bool m_onTerminal;
  bool m_drawn = false;
  std::string m_label;
  std::chrono::steady_clock::time_point m_beginning;
  std::chrono::steady_clock::time_point m_lastDrawing;
  unsigned int m_lastPercent = 0;  // of the last plain line
  unsigned int m_fileCount = 0;
  unsigned int m_filesDone = 0;
  unsigned long long m_byteCount = 0;
  unsigned long long m_bytesDone = 0;
};
