// log_options.h: what the verbs of `tovanctl log` are told.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/tovanctl/log_filter.h"

namespace tovanctl {

struct LogOptions {
  std::string service;
  std::string file;
  std::uint32_t instance = 0;
  bool hasInstance = false;
  LogFilter filter;
  bool marks = false;   // as a tree
  bool decode = false;  // percent escapes
  bool json = false;
  std::uint32_t last = 10;  // of follow: records from before
};

}  // namespace tovanctl
