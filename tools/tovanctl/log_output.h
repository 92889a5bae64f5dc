// log_output.h: what both `log show` and `log follow` do with what a reader finds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/tovanctl/log_options.h"
#include "tools/tovanctl/log_reader.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {

// The parts of a file that could not be read; keeps the first kMostKept places.
class LogDamages {
 public:
  static constexpr std::size_t kMostKept = 20;

  // True when it is one of the first, which are kept.
  bool add(const LogDamage& damage);
  // A message on standard error with how many there are and where; none when there are none.
  void report(const std::string& path) const;
  Json json() const;

 private:
  std::uint64_t count_ = 0;
  std::vector<LogDamage> places_;
};

// "line 7, byte 512 (40 bytes): not well-formed".
std::string damageText(const LogDamage& damage);

// The record as it is to be seen: with --decode its message without percent escapes.
LogRecord asWanted(const LogRecord& record, const LogOptions& options);

}  // namespace tovanctl
