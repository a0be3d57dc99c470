#include "tools/hbadisc/Table.h"

#include <algorithm>
#include <utility>

namespace hbadisc {

namespace {

constexpr std::string_view kGap = "  ";

std::string_view ColourOf(Style style) {
  switch (style) {
    case Style::Heading:
      return "\x1b[1m";
    case Style::Good:
      return "\x1b[32m";
    case Style::Bad:
      return "\x1b[31m";
    case Style::Warning:
      return "\x1b[33m";
    case Style::Plain:
      break;
  }
  return {};
}

}  // namespace

std::string Styled(std::string_view text, Style style, bool colour) {
  const std::string_view start = ColourOf(style);
  if (!colour || start.empty()) return std::string(text);
  return std::string(start).append(text).append("\x1b[0m");
}

Table::Table(std::vector<Column> columns) : m_Columns(std::move(columns)), m_Widths(m_Columns.size()) {
  for (const Column& column : m_Columns) m_Heading.push_back({ToTerminal(column.heading), Style::Heading});
  Widen(m_Heading);
}

void Table::AddRow(const std::vector<Cell>& cells) {
  std::vector<Shown> row;
  row.reserve(cells.size());
  for (const Cell& cell : cells) row.push_back({ToTerminal(cell.text.empty() ? "-" : cell.text), cell.style});
  row.resize(m_Columns.size());
  Widen(row);
  m_Rows.push_back(std::move(row));
}

void Table::Widen(const std::vector<Shown>& line) {
  for (std::size_t i = 0; i < line.size(); ++i) m_Widths[i] = std::max(m_Widths[i], line[i].content.width);
}

std::string Table::RenderLine(const std::vector<Shown>& line, bool colour, std::string_view indent) const {
  std::string text(indent);
  for (std::size_t i = 0; i < line.size(); ++i) {
    const std::string padding(m_Widths[i] - line[i].content.width, ' ');
    const std::string shown = Styled(line[i].content.text, line[i].style, colour);
    const bool last = i + 1 == line.size();
    if (i > 0) text += kGap;
    if (m_Columns[i].align == Align::Right) text += padding;
    text += shown;
    if (m_Columns[i].align == Align::Left && !last) text += padding;
  }
  return text += '\n';
}

std::string Table::Render(bool colour, std::string_view indent) const {
  if (m_Rows.empty()) return {};
  std::string text = RenderLine(m_Heading, colour, indent);
  for (const auto& row : m_Rows) text += RenderLine(row, colour, indent);
  return text;
}

}  // namespace hbadisc
