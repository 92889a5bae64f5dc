#include "tests/tools/launchctl/launchctl_testing.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <utility>

#include "tests/support/scratch_home.h"
#include "tools/launchctl/process.h"

namespace test {

CommandResult launchctl(const std::vector<std::string>& arguments) {
  return runCommand(TOVAN_BUILD_DIR "/lib/tovan/bin/launchctl", arguments);
}

bool await(const std::function<bool()>& condition, double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return condition();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

std::optional<launchctl::JobStatus> statusOf(const std::string& label) {
  const CommandResult result = test::launchctl({"list", "-x", label});
  if (result.status != 0) return std::nullopt;
  return ::launchctl::statusOfList(::launchctl::parseDictionary(result.out).get());
}

pid_t pidOf(const std::string& label) {
  const auto status = statusOf(label);
  return status && status->pid ? *status->pid : 0;
}

pid_t awaitRunning(const std::string& label, pid_t other) {
  pid_t pid = 0;
  await([&] { return (pid = pidOf(label)) != 0 && pid != other; });
  return pid == other ? 0 : pid;
}

bool awaitDown(const std::string& label) {
  return await([&] {
    const auto status = statusOf(label);
    return status && !status->pid;
  });
}

bool isAlive(pid_t pid) { return ::launchctl::startTimeOfProcess(pid).has_value(); }

const std::string& nap() {
  static const std::string seconds = "4711." +
                                     std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()) +
                                     std::to_string(::getpid());
  return seconds;
}

std::vector<pid_t> processesWith(const std::string& text) {
  std::vector<pid_t> found;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    std::ifstream file(entry.path() / "cmdline", std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    if (content.str().find(text) != std::string::npos) found.push_back(std::stoi(name));
  }
  return found;
}

std::string escaped(const std::string& text) {
  std::string out;
  for (const char character : text) {
    switch (character) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '\r':
        out += "&#13;";
        break;
      default:
        out += character;
    }
  }
  return out;
}

JobFile::JobFile(std::string label) : label_(std::move(label)), folder_(scratchFolder("job")), path_(in("job.plist")) {
  set("Label", "<string>" + escaped(label_) + "</string>");
  throttle(0.2);
  exitTimeOut(5);
}

JobFile& JobFile::arguments(const std::vector<std::string>& words) {
  std::string array = "<array>";
  for (const std::string& word : words) array += "<string>" + escaped(word) + "</string>";
  return set("ProgramArguments", array + "</array>");
}

JobFile& JobFile::set(const std::string& key, const std::string& xmlValue) {
  values_[key] = xmlValue;
  return *this;
}

JobFile& JobFile::trigger(const std::string& path, bool exists) {
  return set("KeepAlive", "<dict><key>SuccessfulExit</key><true/><key>PathState</key><dict><key>" + escaped(path) +
                              "</key>" + (exists ? "<true/>" : "<false/>") + "</dict></dict>");
}

std::string JobFile::write() {
  std::string content = "<plist version=\"1.0\"><dict>";
  for (const auto& [key, value] : values_) content += "<key>" + key + "</key>" + value;
  writeFile(path_, content + "</dict></plist>");
  EXPECT_EQ(::chmod(path_.c_str(), 0644), 0);
  return path_;
}

std::vector<std::string> linesOf(const std::string& path) {
  std::vector<std::string> lines;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

}  // namespace test
