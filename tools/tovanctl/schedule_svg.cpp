#include "tools/tovanctl/schedule_svg.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string_view>
#include <vector>

#include "tools/tovanctl/schedule_moment.h"
#include "tools/tovanctl/schedule_week.h"
#include "tools/tovanctl/svg_text.h"

namespace tovanctl {
namespace {

using tovan::CServiceSchedule;

// The picture's measures, in its own units.
constexpr double kWidth = 1040;
constexpr double kHeight = 520;
constexpr double kLeft = 132;  // of the bars
constexpr double kBar = 768;   // 32 an hour
constexpr double kTop = 128;   // of the first bar
constexpr double kRow = 46;    // from bar to bar
constexpr double kBarHeight = 32;
constexpr double kRight = kWidth - 32;
constexpr double kLegend = kTop + 7 * kRow + 34;

constexpr std::string_view kStyle =
    "text{font-family:'DejaVu Sans','Segoe UI',Helvetica,Arial,sans-serif;font-size:13px;fill:#33424f}"
    ".title{font-size:22px;font-weight:bold;fill:#17242e}.quiet{fill:#6b7a86}.hour{font-size:12px;fill:#6b7a86}"
    ".day{font-size:14px}.today{font-size:14px;font-weight:bold;fill:#17242e}"
    ".inside{fill:#ffffff;font-weight:bold}.middle{text-anchor:middle}.end{text-anchor:end}"
    ".off{fill:#e8edf1}.on{fill:#1f8a5f}.grid{stroke:#c5d0d9;stroke-width:1}.fine{stroke:#c5d0d9;stroke-width:0.5}"
    ".gridInside{stroke:#17242e;stroke-opacity:0.09;stroke-width:1}.now{stroke:#d1344b;stroke-width:2.5}"
    ".nowDot{fill:#d1344b}.dotOff{fill:#8795a1}.sheet{fill:#ffffff}";

double across(std::uint32_t secondOfDay) { return kLeft + kBar * secondOfDay / CServiceSchedule::kSecondsOfDay; }

std::string spanText(const DaySpan& span) { return clockText(span.from) + "–" + clockText(span.to); }

// About as wide as bold digits come out.
double widthOf(const std::string& label) { return 8.6 * static_cast<double>(label.size()) + 12; }

std::string heading(const WeekPicture& picture, const LineState& state) {
  const std::string until = state.isForEver ? ", and always" : ", until " + shortMomentText(state.until);
  return svgTextAt(32, 46, "title", svgShortened(picture.title, 44)) +
         svgTextAt(32, 70, "quiet", svgShortened(picture.subtitle, 80)) +
         fmt::format("<circle cx=\"{:g}\" cy=\"41\" r=\"6\" class=\"{}\"/>\n", kRight - 6,
                     state.isOnLine ? "on" : "dotOff") +
         svgTextAt(kRight - 20, 46, "end", std::string(stateText(state.isOnLine)) + " now" + until) +
         svgTextAt(kRight, 70, "quiet end", "times of " + picture.zone);
}

std::string scale() {
  std::string out;
  const double bottom = kTop + 6 * kRow + kBarHeight + 8;
  for (std::uint32_t hour = 0; hour <= 24; ++hour) {
    const bool isNumbered = hour % 3 == 0;
    const double x = across(hour * 3600);
    out += fmt::format("<line x1=\"{0:g}\" y1=\"{1:g}\" x2=\"{0:g}\" y2=\"{2:g}\" class=\"{3}\"/>\n", x,
                       kTop - (isNumbered ? 10 : 5), bottom, isNumbered ? "grid" : "fine");
    if (isNumbered) out += svgTextAt(x, kTop - 16, "hour middle", fmt::format("{:02}:00", hour));
  }
  return out + svgTextAt(kRight, kTop - 16, "hour end", "on line");
}

// Beside a stretch that is too narrow for what it says.
std::string labelBeside(const DaySpan& span, double y) {
  const std::string label = spanText(span);
  if (kLeft + kBar - across(span.to) >= widthOf(label)) return svgTextAt(across(span.to) + 8, y, "", label);
  return svgTextAt(across(span.from) - 8, y, "end", label);
}

std::string labelInside(const DaySpan& span, std::string_view style, const std::string& label, double y) {
  const double left = across(span.from);
  const double right = across(span.to);
  return right - left < widthOf(label) ? "" : svgTextAt((left + right) / 2, y, style, label);
}

// A day has at most two stretches on line, one before and one after its window.
std::string barLabels(const std::vector<DaySpan>& spans, double y) {
  constexpr DaySpan whole{0, CServiceSchedule::kSecondsOfDay};
  if (spans.empty()) return labelInside(whole, "quiet middle", "off line all day", y);
  if (spans.size() == 1) {
    const bool isWhole = spans[0].to - spans[0].from == whole.to;
    const std::string inside = labelInside(spans[0], "inside middle", isWhole ? "all day" : spanText(spans[0]), y);
    return inside.empty() ? labelBeside(spans[0], y) : inside;
  }
  const DaySpan gap{spans[0].to, spans[1].from};
  std::string inGap = labelInside(gap, "middle", "off line " + spanText(gap), y);
  if (!inGap.empty()) return inGap;
  return labelInside(spans[0], "inside middle", spanText(spans[0]), y) +
         labelInside(spans[1], "inside middle", spanText(spans[1]), y);
}

std::string rectangle(double left, double top, double width, std::string_view style, const std::string& says) {
  return fmt::format(
      "<rect x=\"{:g}\" y=\"{:g}\" width=\"{:g}\" height=\"{:g}\" class=\"{}\"><title>{}</title></rect>\n", left, top,
      width, kBarHeight, style, svgEscaped(says));
}

// The hours, faintly, over what is on line.
std::string hoursInside(const std::vector<DaySpan>& spans, double top) {
  std::string out;
  for (const DaySpan& span : spans) {
    for (std::uint32_t hour = span.from / 3600 + 1; hour * 3600 < span.to; ++hour) {
      out += fmt::format("<path d=\"M{:g} {:g}v{:g}\" class=\"gridInside\"/>\n", across(hour * 3600), top, kBarHeight);
    }
  }
  return out;
}

std::string bar(const CServiceSchedule& schedule, std::uint32_t day, std::size_t row, bool isToday) {
  const double top = kTop + kRow * static_cast<double>(row);
  const double y = top + 21;
  const std::vector<DaySpan> spans = onLineSpans(schedule, day);
  const std::string name = kDayNames[day];
  std::string out = svgTextAt(32, y, isToday ? "today" : "day", name);
  out += fmt::format("<g clip-path=\"url(#bar{})\">\n", row) +
         rectangle(kLeft, top, kBar, "off", name + ": " + dayText(schedule, day));
  for (const DaySpan& span : spans) {
    out += rectangle(across(span.from), top, across(span.to) - across(span.from), "on",
                     name + ", " + spanText(span) + ": on line");
  }
  out += hoursInside(spans, top) + "</g>\n" + barLabels(spans, y);
  const std::uint32_t seconds = onLineSeconds(schedule, day);
  const std::string amount = seconds % 60 == 0 ? amountText(seconds) : clockText(seconds) + " h";  // what has room
  return out + svgTextAt(kRight, y, isToday ? "today end" : "day end", amount);
}

// The rounded ends of the bars.
std::string definitions() {
  std::string out = "<defs>\n";
  for (std::size_t row = 0; row < kDrawnDays.size(); ++row) {
    out += fmt::format(
        "<clipPath id=\"bar{}\"><rect x=\"{:g}\" y=\"{:g}\" width=\"{:g}\" height=\"{:g}\" rx=\"6\"/></clipPath>\n",
        row, kLeft, kTop + kRow * static_cast<double>(row), kBar, kBarHeight);
  }
  return out + "</defs>\n";
}

std::string markOfNow(std::size_t row, std::uint32_t secondOfDay) {
  const double top = kTop + kRow * static_cast<double>(row);
  return fmt::format(
      "<path d=\"M{0:g} {1:g}v{2:g}\" class=\"now\"/>\n<circle cx=\"{0:g}\" cy=\"{1:g}\" r=\"4.5\" "
      "class=\"nowDot\"/>\n",
      across(secondOfDay), top - 4, kBarHeight + 8);
}

std::string legend(const CServiceSchedule& schedule, CFAbsoluteTime now) {
  const auto swatch = [](double x, std::string_view style, const std::string& says) {
    return fmt::format("<rect x=\"{:g}\" y=\"{:g}\" width=\"26\" height=\"14\" rx=\"4\" class=\"{}\"/>\n", x,
                       kLegend - 12, style) +
           svgTextAt(x + 36, kLegend, "", says);
  };
  std::string out = swatch(kLeft, "on", "on line") + swatch(kLeft + 120, "off", "off line");
  const double mark = kLeft + 262;
  out += fmt::format(
      "<path d=\"M{0:g} {1:g}v18\" class=\"now\"/>\n<circle cx=\"{0:g}\" cy=\"{1:g}\" r=\"4.5\" class=\"nowDot\"/>\n",
      mark, kLegend - 14);
  out += svgTextAt(mark + 14, kLegend, "", "now, " + shortMomentText(now - std::fmod(now, 60)));
  return out + svgTextAt(kRight, kLegend, "today end", amountText(onLineSeconds(schedule)) + " of 168 h");
}

}  // namespace

std::string weekAsSvg(const CServiceSchedule& schedule, const WeekPicture& picture) {
  std::uint32_t today = 0, hours = 0, minutes = 0, seconds = 0;
  schedule.fromAbsoluteTime(picture.now, today, hours, minutes, seconds);
  std::string out = fmt::format(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0:g}\" height=\"{1:g}\" viewBox=\"0 0 {0:g} {1:g}\" "
      "role=\"img\">\n<title>The week of {2}</title>\n<desc>When {2} is on line, for each day of the week.</desc>\n"
      "<style>{3}</style>\n",
      kWidth, kHeight, svgEscaped(picture.title), kStyle);
  out += definitions() +
         fmt::format("<rect width=\"{:g}\" height=\"{:g}\" rx=\"12\" class=\"sheet\"/>\n", kWidth, kHeight);
  out += heading(picture, lineStateAt(schedule, picture.now)) + scale();
  for (std::size_t row = 0; row < kDrawnDays.size(); ++row) {
    out += bar(schedule, kDrawnDays[row], row, kDrawnDays[row] == today);
  }
  const auto row = static_cast<std::size_t>(std::ranges::find(kDrawnDays, today) - kDrawnDays.begin());
  return out + markOfNow(row, (hours * 60 + minutes) * 60 + seconds) + legend(schedule, picture.now) + "</svg>\n";
}

}  // namespace tovanctl
