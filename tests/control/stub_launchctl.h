// stub_launchctl.h: a launchctl that only keeps books.
#pragma once

#include "tests/support/scratch_home.h"

#include "platform/system/tool_lookup.h"

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace test {

// Stands in for the tool as long as the object lives. A job counts as loaded from its "load" to its "unload".
class StubLaunchctl {
 public:
  StubLaunchctl() {
    makeFolders(state_);
    const std::string listing =
        "printf '<?xml version=\"1.0\" encoding=\"UTF-8\"?>\\n<plist version=\"1.0\"><dict><key>Label</key><string>%s"
        "</string><key>LastExitStatus</key><integer>0</integer></dict></plist>\\n' \"$3\"";
    writeScript("echo \"$@\" >> '" + folder_ +
                "/log'\n"
                "job=${2##*/}; job=${job%.plist}\n"
                "if [ -e '" +
                folder_ +
                "/refuse-'\"$1\" ]; then echo \"launchctl: no $1 today\"; exit 1; fi\n"
                "case $1 in\n"
                "list) if [ -e '" +
                state_ + "/'\"$3\" ]; then " + listing +
                "; else\n"
                "  echo 'launchctl list returned unknown response'; exit 1; fi ;;\n"
                "load) : > '" +
                state_ +
                "/'\"$job\" ;;\n"
                "unload) /bin/rm '" +
                state_ +
                "/'\"$job\" ;;\n"
                "esac\n");
    platform::setToolFolderForTesting(folder_);
  }
  ~StubLaunchctl() { platform::setToolFolderForTesting(""); }
  StubLaunchctl(const StubLaunchctl&) = delete;
  StubLaunchctl& operator=(const StubLaunchctl&) = delete;

  const std::string& folder() const { return folder_; }
  void writeScript(const std::string& body) const {
    writeFile(folder_ + "/launchctl", "#!/bin/sh\n" + body);
    std::filesystem::permissions(folder_ + "/launchctl", std::filesystem::perms{0755});
  }
  // Makes a verb fail from now on.
  void refuse(const std::string& verb) const { writeFile(folder_ + "/refuse-" + verb, ""); }

  bool isLoaded(const std::string& label) const { return exists(state_ + "/" + label); }
  void setLoaded(const std::string& label) const { writeFile(state_ + "/" + label, ""); }
  // The argument lists it was called with, in order.
  std::vector<std::string> calls() const {
    std::vector<std::string> lines;
    if (!exists(folder_ + "/log")) return lines;
    std::istringstream log(readFile(folder_ + "/log"));
    for (std::string line; std::getline(log, line);) lines.push_back(line);
    return lines;
  }

 private:
  const std::string folder_ = scratchFolder("tools");
  const std::string state_ = folder_ + "/state";
};

}  // namespace test
