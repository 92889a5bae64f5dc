// back_off.h: how long to wait before something that keeps ending is started again.
#pragma once

#include <algorithm>

namespace mervaned {

// Delays that double from the first to the longest. What ran at least as long as the longest delay ran well: the delays
// begin anew. All times in seconds.
class BackOff {
 public:
  BackOff(double first, double longest) : first_(first), longest_(std::max(first, longest)), next_(first) {}

  double afterRunOf(double seconds) {
    if (seconds >= longest_) reset();
    const double delay = next_;
    next_ = std::min(next_ * 2, longest_);
    return delay;
  }
  void reset() { next_ = first_; }

 private:
  double first_;
  double longest_;
  double next_;
};

}  // namespace mervaned
