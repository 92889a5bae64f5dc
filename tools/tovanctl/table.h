// table.h: columns for people: padded to the widest cell as a terminal shows it, headings bold on terminals.
#pragma once

#include <string>
#include <vector>

namespace tovanctl {

// How a text stands out on a terminal.
enum class Style { plain, heading, good, warning, bad };
// The text in its style; as it is without colour.
std::string styled(const std::string& text, Style style, bool colour);

// Control characters (a newline in a path, a name that means to colour the screen) become blanks, so that a line stays
// a line.
std::string onOneLine(std::string text);

class Table {
 public:
  explicit Table(std::vector<std::string> headings) { add(std::move(headings), Style::heading); }
  // The style is that of the row's last cell; a heading's is that of the whole row.
  void add(std::vector<std::string> cells, Style style = Style::plain) { rows_.push_back({std::move(cells), style}); }
  // The whole table; `colour` shows the styles.
  std::string render(bool colour) const;

 private:
  struct Row {
    std::vector<std::string> cells;
    Style style;
  };
  std::vector<Row> rows_;
};

// Whether standard output is a terminal that wants colour (NO_COLOR and TERM=dumb say no).
bool wantsColour();

}  // namespace tovanctl
