#pragma once

// A log of what happened, in order: the text of it is the assertion.

#include <string>
#include <utility>

class EventLog {
 public:
  void Add(std::string const& event) { m_text += (m_text.empty() ? "" : " ") + event; }

  // Everything since the last call, with blanks between.
  std::string Take() { return std::exchange(m_text, std::string()); }

 private:
  std::string m_text;
};
