#include "tools/tovanctl/table.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace tovanctl {
namespace {

// Code points, not bytes; control characters (a newline in a path) are shown as blanks so that rows stay rows.
std::size_t width(const std::string& cell) {
  return static_cast<std::size_t>(std::count_if(
      cell.begin(), cell.end(), [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; }));
}

std::string onOneLine(std::string cell) {
  std::replace_if(
      cell.begin(), cell.end(), [](char byte) { return static_cast<unsigned char>(byte) < 0x20U || byte == 0x7F; },
      ' ');
  return cell;
}

}  // namespace

std::string Table::render(bool colour) const {
  std::vector<std::size_t> widths;
  for (const auto& row : rows_) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], width(row[column]));
    }
  }
  std::string out;
  for (std::size_t number = 0; number < rows_.size(); ++number) {
    std::string line;
    for (std::size_t column = 0; column < rows_[number].size(); ++column) {
      const std::string cell = onOneLine(rows_[number][column]);
      line += cell;
      if (column + 1 < rows_[number].size()) line += std::string(widths[column] - width(cell) + 2, ' ');
    }
    out += number == 0 && colour ? "\x1b[1m" + line + "\x1b[0m\n" : line + "\n";
  }
  return out;
}

bool wantsColour() {
  const char* const terminal = std::getenv("TERM");
  return ::isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr &&
         !(terminal != nullptr && std::strcmp(terminal, "dumb") == 0);
}

}  // namespace tovanctl
