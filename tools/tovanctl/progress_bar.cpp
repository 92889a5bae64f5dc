#include "tools/tovanctl/progress_bar.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

constexpr std::int64_t kManyBytes = std::int64_t{64} << 20U;
constexpr std::chrono::milliseconds kPatience{500};
constexpr std::chrono::milliseconds kBetweenDrawings{100};
constexpr std::size_t kUsualWidth = 80;
constexpr std::size_t kShortestBar = 10;
constexpr std::size_t kLongestName = 30;

bool canMoveCursor() {
  const char* const terminal = std::getenv("TERM");
  return ::isatty(STDERR_FILENO) != 0 && terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

std::size_t terminalWidth() {
  winsize size{};
  return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualWidth;
}

std::string bytesText(double bytes) {
  static constexpr std::array<const char*, 5> kUnits = {"B", "kB", "MB", "GB", "TB"};
  std::size_t unit = 0;
  for (; bytes >= 1000 && unit + 1 < kUnits.size(); ++unit) bytes /= 1000;
  return fmt::format("{:.{}f} {}", bytes, unit < 2 || bytes >= 100 ? 0 : 1, kUnits.at(unit));
}

// The end of a name that is too long, whole characters of it.
std::string shortened(const std::string& name) {
  if (name.size() <= kLongestName) return name;
  std::size_t start = name.size() - kLongestName;
  while (start < name.size() && (static_cast<unsigned char>(name[start]) & 0xC0U) == 0x80U) ++start;
  return "..." + name.substr(start);
}

void draw(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fflush(stderr);
}

}  // namespace

ProgressBar::ProgressBar(const std::string& name, std::int64_t total)
    : name_(shortened(onOneLine(name))),
      total_(static_cast<double>(total)),
      isWanted_(canMoveCursor()),
      next_(total >= kManyBytes ? begin_ : begin_ + kPatience) {}

ProgressBar::~ProgressBar() {
  if (isDrawn_) draw("\r\x1b[K");
}

void ProgressBar::show(std::uint64_t done) {
  if (!isWanted_) return;
  const Clock::time_point now = Clock::now();
  if (now < next_) return;
  next_ = now + kBetweenDrawings;
  isDrawn_ = true;
  draw("\r" + line(static_cast<double>(done), std::chrono::duration<double>(now - begin_).count()) + "\x1b[K");
}

std::string ProgressBar::line(double done, double seconds) const {
  const std::string speed = seconds > 0 ? bytesText(done / seconds) + "/s" : "";
  if (total_ <= 0) return fmt::format("{}  {}  {}", name_, bytesText(done), speed);
  const double share = std::min(done / total_, 1.0);
  std::string end = fmt::format("{:3.0f} %  {:>9}", share * 100, speed);
  const std::size_t width = terminalWidth();
  const std::size_t taken = name_.size() + end.size() + 7;  // blanks and brackets, and the last column stays free
  if (width < taken + kShortestBar) return end;
  const std::size_t length = width - taken;
  const auto filled = static_cast<std::size_t>(share * static_cast<double>(length));
  return fmt::format("{}  [{}{}]  {}", name_, std::string(filled, '#'), std::string(length - filled, ' '), end);
}

}  // namespace tovanctl
