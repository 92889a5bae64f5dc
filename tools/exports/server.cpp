#include "tools/exports/server.h"

#include <netdb.h>
#include <signal.h>

#include <charconv>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>

#include "tools/exports/linux_exports.h"
#include "tools/launchctl/failure.h"
#include "tools/launchctl/process.h"

namespace exports {
namespace {

constexpr double kReloadLimit = 60;
constexpr std::size_t kMostLines = 20;

std::map<std::string, std::string> plainEnvironment() {
  return {{"PATH", "/usr/sbin:/usr/bin:/sbin:/bin"}, {"LC_ALL", "C.UTF-8"}};
}

void noteLines(const std::string& prefix, const std::string& text, Report& report) {
  std::istringstream lines(text);
  std::string line;
  for (std::size_t count = 0; count < kMostLines && std::getline(lines, line); ++count) {
    if (!line.empty()) report.notes.push_back(prefix + line);
  }
}

// Under which name the server lists the host; empty when there is no other.
std::string canonicalName(const std::string& host) {
  addrinfo hints{};
  hints.ai_flags = AI_CANONNAME;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0) return "";
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(found, ::freeaddrinfo);
  return found->ai_canonname == nullptr ? "" : found->ai_canonname;
}

bool isKernelServerThere() {
  std::ifstream file("/proc/filesystems");
  const std::string known((std::istreambuf_iterator<char>(file)), {});
  return known.find("\tnfsd\n") != std::string::npos;
}

}  // namespace

void reloadKernelServer(const std::string& program, Report& report) {
  const launchctl::CommandOutput output =
      launchctl::runCommand(program, {"exportfs", "-ra"}, plainEnvironment(), kReloadLimit);
  report.unservable = unservableFolders(output.err);
  if (output.status != 0) {
    report.notes.push_back(program + " -ra ended with status " + std::to_string(output.status));
    noteLines("  ", output.err, report);
  }
  if (!isKernelServerThere()) {
    report.notes.push_back("this kernel has no NFS server loaded; \"server = ganesha\" in " + report.configurationFile +
                           " feeds nfs-ganesha instead");
  }
}

void readBack(const std::string& servedList, const std::vector<Client>& clients, Report& report) {
  std::ifstream file(servedList, std::ios::binary);
  if (!file && errno != ENOENT) throw launchctl::systemFailure(servedList + ": cannot read it");
  const std::vector<ServedExport> served = readServed(std::string((std::istreambuf_iterator<char>(file)), {}));
  std::map<std::string, std::string> canonical;
  for (ReportedExport& one : report.exports) {
    for (const Client& client : clients) {
      if (client.host != one.host || report.unservable.count(one.path) != 0) continue;
      one.isServed = isServed(served, one.path, one.host, client.options);
      if (one.isServed || served.empty()) continue;
      const auto name = canonical.find(one.host);
      const std::string other =
          name != canonical.end() ? name->second : canonical.emplace(one.host, canonicalName(one.host)).first->second;
      one.isServed = !other.empty() && isServed(served, one.path, other, client.options);
    }
  }
  report.isReadBack = true;
}

void reloadGanesha(const Configuration& configuration, Report& report) {
  std::ifstream file(configuration.ganeshaPidFile);
  std::string text;
  pid_t pid = 0;
  if (std::getline(file, text)) std::from_chars(text.data(), text.data() + text.size(), pid);
  std::string name;
  std::ifstream process("/proc/" + std::to_string(pid) + "/comm");
  if (pid > 1 && std::getline(process, name) && name == "ganesha.nfsd" && ::kill(pid, SIGHUP) == 0) return;
  report.notes.push_back("nfs-ganesha does not run here (" + configuration.ganeshaPidFile +
                         "); it is started with: ganesha.nfsd -f " + report.outputFile + " -p " +
                         configuration.ganeshaPidFile);
}

}  // namespace exports
