// Tables of good and bad rows that stand in a text file beside their test: sections in brackets, and in each
// row an input, " => " and what is expected. \n, \t and \r are written so; a line that begins with ## is a
// remark.
#ifndef TESTS_SUPPORT_ROWS_H_
#define TESTS_SUPPORT_ROWS_H_

#include "tests/support/Testing.h"

using Row = std::pair<std::string, std::string>;

inline std::string Unescaped(std::string text) {
  const std::pair<const char*, char> escapes[] = {{"\\n", '\n'}, {"\\t", '\t'}, {"\\r", '\r'}};
  for (const auto& [written, meant] : escapes) {
    for (std::size_t at; (at = text.find(written)) != std::string::npos;) text.replace(at, 2, 1, meant);
  }
  return text;
}

inline std::vector<Row> Rows(const std::string& path, const std::string& section) {
  std::ifstream file(path);
  std::vector<Row> rows;
  std::string current;
  for (std::string line; std::getline(file, line);) {
    const std::size_t arrow = line.find(" =>");
    if (arrow == std::string::npos && line.starts_with('[')) current = line.substr(1, line.size() - 2);
    if (arrow == std::string::npos || current != section || line.starts_with("##")) continue;
    rows.emplace_back(Unescaped(line.substr(0, arrow)),
                      Unescaped(line.substr(std::min(line.size(), arrow + 4))));
  }
  EXPECT_FALSE(rows.empty()) << "no section " << section << " in " << path;
  return rows;
}

#endif  // TESTS_SUPPORT_ROWS_H_
