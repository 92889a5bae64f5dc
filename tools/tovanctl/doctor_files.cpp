// What belongs to this user: folders, files, services and registrations.
#include <plinth/plinth.h>
#include <sys/stat.h>
#include <tovan/constants.h>
#include <tovan/file_util.h>
#include <tovan/service_cache_file.h>
#include <tovan/service_pid_file.h>
#include <tovan/tovan_config_updater.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <optional>
#include <sstream>

#include "tools/tovanctl/daemon.h"
#include "tools/tovanctl/doctor_checks.h"
#include "tools/tovanctl/jobs.h"
#include "tools/tovanctl/services.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {
namespace {

namespace fs = std::filesystem;
using plinth::CSharedCFRef;

std::string expanded(CFStringRef path) {
  const CSharedCFRef<CFStringRef> whole(TovanExpandTildeInPath(path));
  std::string out = text(whole.get());
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

// A folder or file that only its owner, this user, may change.
void checkOwned(Checks& checks, const std::string& name, const std::string& path) {
  struct stat facts {};
  if (::lstat(path.c_str(), &facts) != 0) {
    const bool missing = errno == ENOENT;
    checks.push_back(
        {name, missing, path + (missing ? ", made when it is needed" : std::string(": ") + std::strerror(errno)), ""});
    return;
  }
  const bool followed = ::stat(path.c_str(), &facts) == 0;
  const std::string user = std::to_string(::geteuid());
  if (!followed) {
    checks.push_back({name, false, path + " is a link that leads nowhere", "rm " + shellWord(path)});
  } else if (facts.st_uid != ::geteuid()) {
    checks.push_back({name, false, path + " belongs to user " + std::to_string(facts.st_uid),
                      "sudo chown " + user + " " + shellWord(path)});
  } else if ((facts.st_mode & 022U) != 0) {
    checks.push_back({name, false, path + " can be changed by others", "chmod go-w " + shellWord(path)});
  } else if ((facts.st_mode & 0600U) != 0600U || (S_ISDIR(facts.st_mode) && (facts.st_mode & 0100U) == 0)) {
    checks.push_back({name, false, path + " cannot be used by its owner",
                      std::string("chmod u+rw") + (S_ISDIR(facts.st_mode) ? "x " : " ") + shellWord(path)});
  } else {
    checks.push_back({name, true, path, ""});
  }
}

// A file that is there and cannot be read as what it is to be.
void checkReadable(Checks& checks, const std::string& name, const std::string& path) {
  try {
    const tovan::CPropertyListBasicFile file(string(path).get());
  } catch (const plinth::CException& error) {
    checks.push_back({name, false, error.what(), "mv " + shellWord(path) + " " + shellWord(path + ".damaged")});
  }
}

// What the daemon would replace the whole file for. A file that cannot be read is another check's matter.
void checkContents(Checks& checks) {
  std::ostringstream nothing;  // asking reports nothing
  const tovan::TovanConfigUpdater updater(nothing);
  if (updater.needCopyLumisphereConfigFile()) return;
  std::optional<std::string> problem;
  try {
    problem = updater.contentsProblem();
  } catch (const plinth::CException&) {
    return;
  }
  if (!problem) return;
  checks.push_back(
      {"configuration contents", false,
       *problem + "; the daemon replaces the file by the shipped defaults when it starts, and keeps a copy",
       "tovanctl config upgrade"});
}

// The keys of the PID file that hold process ids.
std::vector<std::string> registrationKeys() {
  const tovan::CPropertyListBasicFile file(string(expanded(tovan::TovanCorePrivate::kTovanPIDFilePath)).get());
  const CSharedCFRef<CFDictionaryRef> document = file.toPropertyList();
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(document.get()));
  std::vector<const void*> keys(count);
  std::vector<const void*> values(count);
  CFDictionaryGetKeysAndValues(document.get(), keys.data(), values.data());
  std::vector<std::string> names;
  for (std::size_t index = 0; index < count; ++index) {
    if (CFGetTypeID(values[index]) == CFArrayGetTypeID()) names.push_back(text(static_cast<CFStringRef>(keys[index])));
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Gone, or passed on to another program.
bool isStale(const std::string& key, pid_t pid) {
  const std::optional<Process> process = processOfId(pid);
  return !process || (key == kDaemonName && process->name != kDaemonName);
}

}  // namespace

void checkFiles(Checks& checks) {
  const std::string config = expanded(tovan::TovanCorePrivate::kServiceCacheFilePath);
  const std::string pids = expanded(tovan::TovanCorePrivate::kTovanPIDFilePath);
  checkOwned(checks, "configuration folder", expanded(tovan::TovanCorePrivate::kTovanConfigPath));
  checkOwned(checks, "configuration file", config);
  checkReadable(checks, "configuration file", config);
  checkContents(checks);
  checkOwned(checks, "PID file", pids);
  checkReadable(checks, "PID file", pids);
  checkOwned(checks, "launch agents folder", launchAgentsFolder());
  std::error_code missing;
  for (const fs::directory_entry& file : fs::directory_iterator(launchAgentsFolder(), missing)) {
    if (file.path().extension() != ".plist") continue;
    Checks ofFile;
    checkOwned(ofFile, "job description", file.path().string());
    checkReadable(ofFile, "job description", file.path().string());
    // There may be hundreds: only what is wrong is worth a line.
    std::copy_if(ofFile.begin(), ofFile.end(), std::back_inserter(checks),
                 [](const Check& check) { return !check.ok; });
  }
}

void checkServices(Checks& checks) {
  const tovan::CServiceCacheFile cache;
  const std::vector<std::string> names = serviceNames(cache);
  if (names.empty()) {
    checks.push_back({"services", false, "no service is installed", "tovanctl service install"});
    return;
  }
  std::size_t wrong = 0;
  for (const std::string& name : names) {
    tovan::CServiceCacheEntry entry = serviceOfName(cache, name);
    entry.updateRuntimeServicePath();
    const std::string path = text(entry.path());
    if (!path.empty() && ::access(path.c_str(), X_OK) == 0) continue;
    ++wrong;
    checks.push_back({"services", false,
                      name + ": its program " + (path.empty() ? "is not set" : path + ": " + std::strerror(errno)),
                      isRequiredService(name) ? "" : "tovanctl service remove " + shellWord(name)});
  }
  if (wrong == 0)
    checks.push_back({"services", true, std::to_string(names.size()) + " installed, their programs in place", ""});
}

void checkDaemon(Checks& checks) {
  const DaemonState daemon = lookAtDaemon();
  if (isInTheWay(daemon)) {
    checks.push_back({"daemon", false, otherDaemonText(daemon),
                      daemon.otherProcess ? "kill " + std::to_string(*daemon.otherProcess) : ""});
    return;
  }
  checks.push_back({"daemon", true,
                    daemon.process ? "runs, process " + std::to_string(daemon.process->pid)
                                   : "does not run; `tovanctl up` starts it",
                    ""});
}

void checkRegistrations(Checks& checks) {
  std::string stale;
  for (const std::string& key : registrationKeys()) {
    for (const pid_t pid : registeredProcesses(key)) {
      if (isStale(key, pid)) stale += (stale.empty() ? "" : ", ") + key + " " + std::to_string(pid);
    }
  }
  checks.push_back({"registrations", stale.empty(),
                    stale.empty() ? "every registered process is there" : "of processes that are gone: " + stale,
                    stale.empty() ? "" : "tovanctl doctor --prune"});
}

std::size_t pruneRegistrations() {
  std::size_t removed = 0;
  for (const std::string& key : registrationKeys()) {
    tovan::CServicePIDFile file(string(key).get());
    file.lockForRW();
    const auto monitor = plinth::makeShared<tovan::CPropertyListBasicFile::CFileLockMonitor>(&file);
    file.refresh();
    std::vector<std::int32_t> pids;
    file.get(pids);
    const std::size_t before = pids.size();
    pids.erase(std::remove_if(pids.begin(), pids.end(), [&key](std::int32_t pid) { return isStale(key, pid); }),
               pids.end());
    if (pids.size() == before) continue;
    file.put(pids);
    removed += before - pids.size();
  }
  return removed;
}

}  // namespace tovanctl
