// What this host brings for shared storage: tovan-exports, an NFS server, and the programs that mount.
#include <fmt/format.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>

#include "tools/exports/arguments.h"
#include "tools/exports/configuration.h"
#include "tools/tovanctl/storage_doctor.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

namespace fs = std::filesystem;

struct Found {
  std::string pid;
  uid_t user = 0;
};

// A process of any user by the name of its program.
std::optional<Found> processNamed(const std::string& name) {
  std::error_code failed;
  for (const fs::directory_entry& folder : fs::directory_iterator("/proc", failed)) {
    std::ifstream file(folder.path() / "comm");
    std::string program;
    if (!std::getline(file, program) || program != name) continue;
    struct stat facts {};
    if (::stat(folder.path().c_str(), &facts) == 0) return Found{folder.path().filename().string(), facts.st_uid};
  }
  return std::nullopt;
}

// Beside this program, else in PATH.
std::string exportsProgram() {
  std::error_code failed;
  const fs::path own = fs::read_symlink("/proc/self/exe", failed);
  const std::string beside = (own.parent_path() / "tovan-exports").string();
  return isProgram(beside) ? beside : programInPath("tovan-exports");
}

struct Output {
  int status = -1;
  std::string text;
};

Output outputOf(const std::string& command) {
  Output output;
  std::FILE* const pipe = ::popen(command.c_str(), "re");
  if (pipe == nullptr) return output;
  char buffer[4096];
  for (std::size_t count; (count = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.text.append(buffer, count);
  const int status = ::pclose(pipe);
  if (WIFEXITED(status)) output.status = WEXITSTATUS(status);
  return output;
}

// What the configuration says; nothing when it is missing or refused, which the check of tovan-exports tells.
exports::Configuration configurationOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string content((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  try {
    return exports::readConfiguration(content);
  } catch (const exports::ConfigurationError&) {
    return {};
  }
}

// The file that a tovan-exports of that user follows.
std::string followedFile(uid_t user, const exports::Configuration& configuration) {
  if (!configuration.exportsFile.empty()) return configuration.exportsFile;
  const passwd* const entry = ::getpwuid(user);
  return std::string(entry != nullptr ? entry->pw_dir : "") + "/Library/Application Support/Lumisphere/exports";
}

void checkFollower(Checks& checks, const std::string& exportsFile, const exports::Configuration& configuration) {
  const auto found = processNamed("tovan-exports");
  if (!found) {
    checks.push_back({"tovan-exports", false, "does not run, so nobody tells the NFS server what is published",
                      "sudo systemctl enable --now tovan-exports"});
    return;
  }
  // One that this user runs may have been told the file on its command line.
  const std::string followed = followedFile(found->user, configuration);
  const bool isOurs = found->user == ::geteuid() || followed == exportsFile;
  checks.push_back({"tovan-exports", isOurs,
                    isOurs ? "runs, process " + found->pid : "follows " + followed + ", not " + exportsFile,
                    isOurs ? ""
                           : "echo " + shellWord("exports = " + exportsFile) + " | sudo tee -a " +
                                 exports::Arguments().configurationFile});
}

std::string firstLine(const std::string& text) { return onOneLine(text.substr(0, text.find('\n'))); }

// What tovan-exports says of the file.
void checkServed(Checks& checks, const std::string& exportsFile) {
  const std::string program = exportsProgram();
  if (program.empty()) {
    checks.push_back({"exports", false, "there is no tovan-exports", "cmake --install BUILD --prefix PREFIX"});
    return;
  }
  const Output output = outputOf(shellWord(program) + " --check --json --exports " + shellWord(exportsFile) + " 2>&1");
  const nlohmann::json report = nlohmann::json::parse(output.text, nullptr, false);
  if (!report.is_object()) {
    checks.push_back({"exports", false, firstLine(output.text), ""});
    return;
  }
  const std::size_t before = checks.size();
  for (const auto& one : report["exports"]) {
    if (one["served"] != false) continue;
    checks.push_back({"exports", false,
                      onOneLine(one["path"].get<std::string>()) + " is not served to " + one["host"].get<std::string>(),
                      "sudo exportfs -ra"});
  }
  for (const auto& one : report["problems"]) {
    checks.push_back({"exports", false, onOneLine(one["text"].get<std::string>()), ""});
  }
  if (output.status == exports::kIncomplete && checks.size() == before) {
    for (const auto& note : report["notes"]) {
      checks.push_back({"exports", false, onOneLine(note.get<std::string>()), ""});
    }
  }
  if (checks.size() == before) {
    checks.push_back({"exports", true, fmt::format("{} served as published", report["exports"].size()), ""});
  }
}

void checkServer(Checks& checks, const exports::Configuration& configuration) {
  const bool isKernel = configuration.server == exports::Server::kernel;
  const auto found = processNamed(isKernel ? "nfsd" : "ganesha.nfsd");
  const std::string name = isKernel ? "the kernel's NFS server" : "nfs-ganesha";
  if (found) {
    checks.push_back({"NFS server", true, name + " runs", ""});
    return;
  }
  checks.push_back({"NFS server", false, name + " does not run",
                    isKernel ? "sudo apt-get install nfs-kernel-server && sudo systemctl enable --now nfs-server"
                             : "sudo apt-get install nfs-ganesha-vfs && sudo systemctl enable --now nfs-ganesha"});
}

std::string firstProgram(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    if (isProgram(path)) return path;
  }
  return {};
}

void checkTool(Checks& checks, const char* name, const std::string& path, const std::string& package) {
  checks.push_back({name, !path.empty(), path.empty() ? "there is none" : path,
                    path.empty() ? "sudo apt-get install " + package : ""});
}

}  // namespace

void checkExportsOfHost(Checks& checks, const std::string& exportsFile) {
  const exports::Configuration configuration = configurationOf(exports::Arguments().configurationFile);
  checkFollower(checks, exportsFile, configuration);
  checkServed(checks, exportsFile);
  checkServer(checks, configuration);
}

void checkMountsOfHost(Checks& checks) {
  const std::string framework = clusterFramework();
  const std::string adapter = framework.substr(0, framework.rfind("/Frameworks/")) + "/bin/mount";
  const std::string program = firstProgram({"/sbin/mount", adapter});
  checks.push_back({"mount program", !program.empty(), program.empty() ? adapter + " is missing" : program,
                    program.empty() ? "cmake --install BUILD --prefix PREFIX" : ""});
  const char* const named = std::getenv("TOVAN_HOST_MOUNT");
  checkTool(checks, "host's mount", firstProgram({named != nullptr ? named : "/usr/bin/mount", "/bin/mount"}), "mount");
  checkTool(checks, "mount.nfs", firstProgram({"/sbin/mount.nfs", "/usr/sbin/mount.nfs"}), "nfs-common");
  const bool mayMount = ::geteuid() == 0;
  checks.push_back(
      {"permission to mount", mayMount,
       mayMount ? "the daemon of this user mounts as root" : "only root mounts; this user publishes, and cannot mount",
       ""});
}

}  // namespace tovanctl
