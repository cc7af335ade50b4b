#pragma once

// The cells of a CSV file.

#include <string>
#include <vector>

using Row = std::vector<std::string>;

// Within quotes, commas and line breaks are text, and two quotes are one. Outside, a carriage
// return is nothing. A last line that has no end is a row too.
inline std::vector<Row> ParseCsv(std::string const& text) {
  std::vector<Row> rows(1, Row(1));
  bool quoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char const unit = text[i];
    if (unit == '"') {
      if (!quoted && i > 0 && text[i - 1] == '"') rows.back().back() += unit;
      quoted = !quoted;
    } else if (quoted || (unit != ',' && unit != '\n' && unit != '\r')) {
      rows.back().back() += unit;
    } else if (unit == ',') {
      rows.back().emplace_back();
    } else if (unit == '\n') {
      rows.emplace_back(1);
    }
  }
  return rows;
}
