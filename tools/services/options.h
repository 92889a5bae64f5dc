// options.h: the command line of a service process, as CServiceUtil::buildServiceArgs makes it. docs/job-description.md
// says where each value comes from.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace service {

struct Options {
  bool detached = false;           // -d
  bool advertisesLocally = false;  // -l
  bool logs = false;               // -v: to its log file
  std::string advertising;         // -adv: "dn", "mc" or "rv"; "" for none
  std::int32_t instance = 0;       // -idx, from 0
  std::string name;                // -name: what people read
  std::string identifier;          // -id
  std::string accessKey;           // -ak
  std::string captureKey;          // -ck
  bool perUser = false;            // -pu
};

class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws UsageError, which names the option, for an option that there is not, a value that is missing or wrong, and a
// word that is no option. Of an option that is repeated the last one counts.
Options parseOptions(int argc, const char* const* argv);

// What the options say, for the log: the keys are nobody else's business, and are only said to be there.
std::string optionsText(const Options& options);

}  // namespace service
