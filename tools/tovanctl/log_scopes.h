// log_scopes.h: which operations of a log are under way: what the begin and end marks of its processes make together.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/tovanctl/log_record.h"

namespace tovanctl {

// Where a record stands in the operations of its process.
struct LogPlace {
  std::size_t depth = 0;           // how many operations are under way around it
  std::optional<double> duration;  // of an end mark whose begin mark was seen: seconds between them
  // Of a begin mark of a session: the sessions of that process that were under way, and have thus ended without a mark.
  bool endsLostSession = false;
};

// An end mark belongs to the innermost operation of its process with the same text: threads may overlap. A process
// that begins a session anew has lost what it had under way, since its id belongs to another process or program now.
//
// Keeps at most kMostScopes operations of each of kMostProcesses processes; beyond that they have no duration.
class LogScopes {
 public:
  static constexpr std::size_t kMostScopes = 256;
  static constexpr std::size_t kMostProcesses = 4096;

  struct Scope {
    std::string what;
    double begin = 0;
  };

  // In the order of the file.
  LogPlace place(const LogRecord& record);
  // What is under way, by process, the outermost operation first.
  const std::map<std::uint32_t, std::vector<Scope>>& underWay() const { return scopes_; }

 private:
  LogPlace begin(const LogRecord& record);
  LogPlace end(const LogRecord& record);

  std::map<std::uint32_t, std::vector<Scope>> scopes_;
};

}  // namespace tovanctl
