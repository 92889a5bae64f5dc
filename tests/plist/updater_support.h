// updater_support.h: the three files of the configuration updater, in a folder of a test's own.
#pragma once

#include <sys/stat.h>
#include <tovan/tovan_config_updater.h>

#include <filesystem>
#include <functional>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/plist/plist_support.h"

namespace test {

// The entry of a service, without its dictionary's tags.
inline std::string serviceEntry(const std::string& path = "/opt/service") {
  return "<key>Path</key><string>" + path + "</string><key>UserID</key><integer>-1</integer>";
}

inline std::string services(const std::string& admin = serviceEntry(), const std::string& transcoder = serviceEntry()) {
  return "<key>mervaneservices</key><dict><key>jobcontroller:com.brant.mervane.cluster.admin</key><dict>" + admin +
         "</dict><key>servicecontroller:com.brant.klarn.transcoderx</key><dict>" + transcoder + "</dict></dict>";
}

// A document with the two required services; without a version when that is empty.
inline std::string configuration(const std::string& version, const std::string& more = "") {
  return document((version.empty() ? "" : "<key>Version</key><string>" + version + "</string>") + services() + more);
}

// Does something once, when the updater has reported its first line: between what it judged and what it then does.
class ActingAtFirstLine : private std::stringbuf, public std::ostream {
 public:
  explicit ActingAtFirstLine(std::function<void()> act)
      : std::ostream(static_cast<std::stringbuf*>(this)), act_(std::move(act)) {}
  std::string text() const { return std::stringbuf::str(); }

 private:
  int sync() override {
    if (const auto act = std::exchange(act_, nullptr)) act();
    return 0;
  }
  std::function<void()> act_;
};

class UpdaterTest : public ::testing::Test {
 protected:
  const std::string folder = scratchFolder("updater");
  const std::string user = folder + "/LumisphereConfig.plist";
  const std::string previous = folder + "/LumisphereConfig.plist.default";
  const std::string master = folder + "/shipped.plist";
  std::ostringstream reported;
  tovan::TovanConfigUpdater updater{reported, paths()};

  tovan::TovanConfigUpdater::FilePaths paths() const {
    return {plinth::CSTR(user), plinth::CSTR(previous), plinth::CSTR(master)};
  }

  // What is in the console of failed reads is not looked at here.
  bool run() {
    bool isDone = false;
    consoleOf([&] { isDone = updater.run(); });
    return isDone;
  }

  // The same with something done behind its first line.
  bool runWith(const std::function<void()>& act) {
    ActingAtFirstLine stream(act);
    bool isDone = false;
    consoleOf([&] { isDone = tovan::TovanConfigUpdater(stream, paths()).run(); });
    reported << stream.text();
    return isDone;
  }

  // The report lines without their times; "NO TIME: LINE" for one that does not begin with one.
  std::vector<std::string> lines() const {
    std::vector<std::string> found;
    std::istringstream stream(reported.str());
    for (std::string line; std::getline(stream, line);) {
      const std::string shape = "00/00/0000 00:00:00.000 ";
      bool hasTime = line.size() >= shape.size();
      for (std::size_t i = 0; hasTime && i < shape.size(); ++i) {
        hasTime = shape[i] == '0' ? std::isdigit(static_cast<unsigned char>(line[i])) != 0 : line[i] == shape[i];
      }
      found.push_back(hasTime ? line.substr(shape.size()) : "NO TIME: " + line);
    }
    return found;
  }

  // The copies that were kept of the user's file, in the order of their names.
  std::vector<std::string> keptCopies() const {
    std::vector<std::string> found;
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
      const std::string path = file.path().string();
      if (path != user && path != previous && path != master) found.push_back(path);
    }
    std::sort(found.begin(), found.end());
    return found;
  }

  static unsigned int modeOf(const std::string& path) {
    struct stat facts {};
    EXPECT_EQ(::stat(path.c_str(), &facts), 0) << path;
    return facts.st_mode & 07777U;
  }
};

}  // namespace test
