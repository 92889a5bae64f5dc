// own_installation.h: the build's programs in a tree of one test's own, whose shipped defaults it may change.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/command.h"
#include "tests/support/scratch_home.h"

namespace test {

// The same shape as the build folder. Programs and libraries are linked, not copied, where that is possible.
class OwnInstallation {
 public:
  OwnInstallation() {
    namespace fs = std::filesystem;
    const fs::path build = TOVAN_BUILD_DIR;
    fs::create_directories(root_ + "/bin");
    place(build / "bin/tovanctl", root_ + "/bin/tovanctl");
    for (fs::recursive_directory_iterator at(build / "lib"), end; at != end; ++at) {
      const fs::path target = root_ / at->path().lexically_relative(build);
      if (at->is_symlink()) {
        fs::create_directories(target.parent_path());
        fs::copy_symlink(at->path(), target);
      } else if (at->is_directory()) {
        fs::create_directories(target);
      } else if (at->path().extension() == ".default") {
        fs::copy_file(at->path(), target);  // to be changed
      } else {
        place(at->path(), target);
      }
    }
  }
  ~OwnInstallation() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  OwnInstallation(const OwnInstallation&) = delete;
  OwnInstallation& operator=(const OwnInstallation&) = delete;

  CommandResult tovanctl(const std::vector<std::string>& arguments) const {
    return runCommand(root_ + "/bin/tovanctl", arguments);
  }
  std::string daemon() const { return resources_ + "mervaned"; }
  std::string masterFile() const { return resources_ + "LumisphereConfig.plist.default"; }

 private:
  static void place(const std::filesystem::path& from, const std::filesystem::path& to) {
    std::error_code failed;
    std::filesystem::create_hard_link(from, to, failed);
    if (failed) std::filesystem::copy_file(from, to);
  }

  const std::string root_ = scratchFolder("installation");
  const std::string resources_ = root_ + "/lib/tovan/Frameworks/Mervane.framework/Resources/";
};

}  // namespace test
