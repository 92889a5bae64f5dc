// table.h: columns for people: padded to the widest cell as a terminal shows it, headings bold on terminals.
#pragma once

#include <string>
#include <vector>

namespace tovanctl {

class Table {
 public:
  explicit Table(std::vector<std::string> headings) : rows_{std::move(headings)} {}
  void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  // The whole table; `colour` makes the headings bold.
  std::string render(bool colour) const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

// Whether standard output is a terminal that wants colour (NO_COLOR and TERM=dumb say no).
bool wantsColour();

}  // namespace tovanctl
