#include "tools/tovanctl/table.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace tovanctl {
namespace {

// Code points, not bytes.
std::size_t width(const std::string& cell) {
  return static_cast<std::size_t>(std::count_if(
      cell.begin(), cell.end(), [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; }));
}

}  // namespace

std::string onOneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char byte) { return static_cast<unsigned char>(byte) < 0x20U || byte == 0x7F; },
      ' ');
  return text;
}

std::string styled(const std::string& text, Style style, bool colour) {
  static constexpr const char* kStarts[] = {"", "\x1b[1m", "\x1b[32m", "\x1b[33m", "\x1b[31m"};
  if (!colour || style == Style::plain) return text;
  return kStarts[static_cast<int>(style)] + text + "\x1b[0m";
}

std::string Table::render(bool colour) const {
  std::vector<std::size_t> widths;
  for (const Row& row : rows_) {
    widths.resize(std::max(widths.size(), row.cells.size()));
    for (std::size_t column = 0; column < row.cells.size(); ++column) {
      widths[column] = std::max(widths[column], width(row.cells[column]));
    }
  }
  std::string out;
  for (const Row& row : rows_) {
    std::string line;
    for (std::size_t column = 0; column < row.cells.size(); ++column) {
      const std::string cell = onOneLine(row.cells[column]);
      const bool isLast = column + 1 == row.cells.size();
      line += isLast && row.style != Style::heading ? styled(cell, row.style, colour) : cell;
      if (!isLast) line += std::string(widths[column] - width(cell) + 2, ' ');
    }
    out += (row.style == Style::heading ? styled(line, Style::heading, colour) : line) + "\n";
  }
  return out;
}

bool wantsColour() {
  const char* const terminal = std::getenv("TERM");
  return ::isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr &&
         !(terminal != nullptr && std::strcmp(terminal, "dumb") == 0);
}

}  // namespace tovanctl
