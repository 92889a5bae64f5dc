// progress_bar.h: how far a long piece of work has come, on one line of a terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tovanctl {

// Draws on standard error, and only where that is a terminal that can move its cursor. Work on few bytes is not worth a
// line: it gets one when it has taken half a second. The line goes with the object.
class ProgressBar {
 public:
  // `total` in bytes; 0 or less when nobody knows.
  ProgressBar(const std::string& name, std::int64_t total);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void show(std::uint64_t done);

 private:
  using Clock = std::chrono::steady_clock;
  std::string line(double done, double seconds) const;

  std::string name_;
  double total_;
  bool isWanted_;
  bool isDrawn_ = false;
  Clock::time_point begin_ = Clock::now();
  Clock::time_point next_;
};

}  // namespace tovanctl
