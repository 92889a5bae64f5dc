#include "tools/tovanctl/schedule_strip.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "tools/tovanctl/schedule_week.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

constexpr std::uint32_t kCellSeconds = 1800;
constexpr std::uint32_t kCells = tovan::CServiceSchedule::kSecondsOfDay / kCellSeconds;
constexpr std::uint32_t kCellsOfScale = 6;  // a number every three hours
constexpr std::size_t kMargin = 12;         // before the strips

enum class Cell { off, part, on };

std::string_view characterOf(Cell cell, bool unicode) {
  if (cell == Cell::off) return unicode ? "·" : ".";
  if (cell == Cell::part) return unicode ? "▒" : "+";
  return unicode ? "█" : "#";
}

Style styleOf(Cell cell) {
  if (cell == Cell::off) return Style::plain;
  return cell == Cell::on ? Style::good : Style::warning;
}

std::vector<Cell> cellsOf(const std::vector<DaySpan>& spans) {
  std::vector<Cell> cells;
  for (std::uint32_t cell = 0; cell < kCells; ++cell) {
    const std::uint32_t begin = cell * kCellSeconds;
    std::uint32_t seconds = 0;
    for (const DaySpan& span : spans) {
      const std::uint32_t from = std::max(span.from, begin);
      const std::uint32_t to = std::min(span.to, begin + kCellSeconds);
      if (from < to) seconds += to - from;
    }
    cells.push_back(seconds == 0 ? Cell::off : seconds == kCellSeconds ? Cell::on : Cell::part);
  }
  return cells;
}

std::string strip(const std::vector<Cell>& cells, const StripLook& look) {
  std::string out;
  for (auto begin = cells.begin(); begin != cells.end();) {
    const auto end = std::find_if(begin, cells.end(), [&](Cell cell) { return cell != *begin; });
    std::string run;
    for (auto cell = begin; cell != end; ++cell) run += characterOf(*cell, look.unicode);
    out += styled(run, styleOf(*begin), look.colour);
    begin = end;
  }
  return out;
}

std::string scale() {
  std::string line(kMargin, ' ');
  for (std::uint32_t cell = 0; cell <= kCells; cell += kCellsOfScale) {
    line.resize(kMargin + cell, ' ');
    line += std::to_string(cell * kCellSeconds / 3600);
  }
  return line;
}

}  // namespace

bool wantsUnicode() {
  for (const char* const name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* const value = std::getenv(name);
    if (value == nullptr || *value == '\0') continue;
    std::string locale = value;
    std::ranges::transform(locale, locale.begin(), [](unsigned char letter) { return std::toupper(letter); });
    return locale.find("UTF-8") != std::string::npos || locale.find("UTF8") != std::string::npos;
  }
  return false;
}

std::string weekAsStrips(const tovan::CServiceSchedule& schedule, std::uint32_t today, const StripLook& look) {
  std::string out = styled(scale(), Style::heading, look.colour) + "\n";
  for (const std::uint32_t day : kDrawnDays) {
    const std::string name = fmt::format("{:{}}", (day == today ? "> " : "  ") + std::string(kDayNames[day]), kMargin);
    out += styled(name, day == today ? Style::heading : Style::plain, look.colour) +
           strip(cellsOf(onLineSpans(schedule, day)), look) + "  " + dayText(schedule, day) + "\n";
  }
  const auto sample = [&look](Cell cell) {
    return styled(std::string(characterOf(cell, look.unicode)), styleOf(cell), look.colour);
  };
  return out + "\n" + std::string(kMargin, ' ') + sample(Cell::on) + " on line   " + sample(Cell::part) +
         " part of the half hour   " + sample(Cell::off) + " off line   > today\n";
}

}  // namespace tovanctl
