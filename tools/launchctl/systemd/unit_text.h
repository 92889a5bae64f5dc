// unit_text.h: the names and texts of a job's units.
#pragma once

#include <string>
#include <vector>

#include "tools/launchctl/back_end.h"

namespace launchctl {

// A word of a unit file's ExecStart, quoted and escaped so that exactly this text comes out (systemd.service(5)).
std::string quotedWord(const std::string& text);
// A label as a part of a unit's name: letters, digits, "_", "-" and "." as they are, all other bytes as \xNN.
std::string escapedLabel(const std::string& label);

struct UnitNames {
  explicit UnitNames(const std::string& label);
  std::string service;  // tovan-job-LABEL.service
  std::string path;     // tovan-job-LABEL.path
  std::string watch;    // tovan-watch-LABEL.service
  std::string record;   // tovan-job-LABEL.plist
  std::string exit;     // tovan-job-LABEL.exit
};

inline constexpr const char* kRecordStart = "tovan-job-";
inline constexpr const char* kRecordEnd = ".plist";

// `folder` holds the units, `host` is the path of launchd-host.
std::string serviceUnit(const JobToLoad& job, const UnitNames& names, const std::string& folder,
                        const std::string& host);
std::string pathUnit(const JobToLoad& job, const UnitNames& names);
std::string watchUnit(const JobToLoad& job, const UnitNames& names, const std::string& folder, const std::string& host);

}  // namespace launchctl
