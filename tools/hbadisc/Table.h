// Lines of aligned columns.
//
// Thread safety: one thread at a time. Ownership: the table owns its cells.
#ifndef TOOLS_HBADISC_TABLE_H_
#define TOOLS_HBADISC_TABLE_H_

#include <string>
#include <string_view>
#include <vector>

#include "tools/hbadisc/Text.h"

namespace hbadisc {

enum class Style { Plain, Heading, Good, Bad, Warning };

// The text in the colour of its style, or as it is.
std::string Styled(std::string_view text, Style style, bool colour);

enum class Align { Left, Right };

struct Column {
  std::string heading;
  Align align = Align::Left;
};

struct Cell {
  std::string text;  // of unknown origin; the table makes it presentable. Empty is shown as "-"
  Style style = Style::Plain;
};

class Table {
 public:
  explicit Table(std::vector<Column> columns);

  // `cells` are as many as there are columns.
  void AddRow(const std::vector<Cell>& cells);

  // The heading and the rows, each line behind `indent`; without rows nothing at all.
  std::string Render(bool colour, std::string_view indent = "") const;

 private:
  struct Shown {
    TerminalText content;
    Style style = Style::Plain;
  };

  std::string RenderLine(const std::vector<Shown>& line, bool colour, std::string_view indent) const;
  void Widen(const std::vector<Shown>& line);

  std::vector<Column> m_Columns;
  std::vector<std::size_t> m_Widths;
  std::vector<Shown> m_Heading;
  std::vector<std::vector<Shown>> m_Rows;
};

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_TABLE_H_
