#include "tests/nfs/hosts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <sstream>

#include "tests/support/scratch_home.h"

namespace nfs {
namespace {

void must(const std::vector<std::string>& command) {
  const test::CommandResult result = run(onServer(command));
  EXPECT_EQ(result.status, 0) << command[0] << ": " << result.err;
}

// The mount table escapes what would part its columns.
std::string unescaped(const std::string& text) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '\\') {
      result += text[at];
    } else {
      result += static_cast<char>(std::stoi(text.substr(at + 1, 3), nullptr, 8));
      at += 3;
    }
  }
  return result;
}

}  // namespace

std::vector<std::string> onServer(const std::vector<std::string>& command) {
  std::vector<std::string> whole = {"/usr/bin/nsenter", "--target", "1", "--mount", "--net", "--"};
  whole.insert(whole.end(), command.begin(), command.end());
  return whole;
}

test::CommandResult run(const std::vector<std::string>& command) {
  return test::runCommand(command[0], {command.begin() + 1, command.end()});
}

test::CommandResult onStranger(const std::string& line, const std::string& nfsVersion) {
  const std::string adapter = TOVAN_BUILD_DIR "/lib/tovan/bin/mount";
  const std::string function = "FOLDER='" + test::scratchFolder("stranger") +
                               "'; mount() { TOVAN_NFS_VERSION=" + nfsVersion + " '" + adapter +
                               "' -o soft,intr,locallocks \"$1\" \"$FOLDER\"; }; ";
  return run({"/usr/bin/ip", "netns", "exec", "stranger", "/bin/bash", "-c", function + line});
}

void note(const char* format, ...) {
  std::va_list values;
  va_start(values, format);
  std::printf("  seen: ");
  std::vprintf(format, values);
  std::printf("\n");
  va_end(values);
}

Mount mountAt(const std::string& folder) {
  Mount found;
  std::istringstream table(test::readFile("/proc/self/mounts"));
  for (std::string line; std::getline(table, line);) {
    std::istringstream columns(line);
    std::string source, place, type, options;
    columns >> source >> place >> type >> options;
    if (unescaped(place) == folder) found = {unescaped(source), type, options};
  }
  return found;
}

std::vector<std::string> served() {
  std::vector<std::string> entries;
  std::istringstream list(test::readFile("/var/lib/nfs/etab"));
  for (std::string line; std::getline(list, line);) {
    const std::size_t tab = line.find('\t');
    entries.push_back(line.substr(0, tab) + " " + line.substr(tab + 1, line.find('(', tab) - tab - 1));
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

SilentServer::SilentServer() { must({"/usr/bin/ip", "link", "set", "to-client", "down"}); }
SilentServer::~SilentServer() { must({"/usr/bin/ip", "link", "set", "to-client", "up"}); }

StoppedServer::StoppedServer() { must({"/usr/sbin/rpc.nfsd", "0"}); }
StoppedServer::~StoppedServer() { must({"/usr/sbin/rpc.nfsd", "4"}); }

}  // namespace nfs
