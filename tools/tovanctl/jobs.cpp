#include "tools/tovanctl/jobs.h"

#include <plinth/plinth.h>
#include <tovan/cf_util.h>
#include <tovan/file_util.h>
#include <tovan/launch_ctl.h>
#include <tovan/launchctl_plist.h>
#include <tovan/plist_updater.h>
#include <tovan/service_util.h>

#include <algorithm>
#include <charconv>
#include <filesystem>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {
namespace {

namespace fs = std::filesystem;
using plinth::CSharedCFRef;
using plinth::CSTR;
using plinth::CStringRef;
using tovan::CLaunchCtl;
using tovan::CLaunchCtlPList;
using tovan::CPListUpdater;

constexpr const char* kDescription = ".plist";

std::string triggerOfLabel(const std::string& label) {
  const auto description = plinth::makeShared<CLaunchCtlPList>(CStringRef());
  description->setPListData(CLaunchCtlPList::plistDataForGenericService().get());
  description->setLabel(CSTR(label));
  return description->getTransientTriggerFilePath(true)->str();
}

// Which instances beyond the configured ones have a description: LABEL-NUMBER.plist, the number one more than the
// instance's.
std::vector<unsigned int> furtherInstances(const std::string& firstLabel, unsigned int configured) {
  std::vector<unsigned int> found;
  std::error_code missing;
  const std::string start = firstLabel + "-";
  for (const fs::directory_entry& file : fs::directory_iterator(launchAgentsFolder(), missing)) {
    const std::string name = file.path().filename().string();
    if (name.rfind(start, 0) != 0 || file.path().extension() != kDescription) continue;
    const std::string digits = name.substr(start.size(), name.size() - start.size() - std::string(kDescription).size());
    unsigned int number = 0;
    const auto [end, failed] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (failed != std::errc() || end != digits.data() + digits.size() || digits[0] == '0' || number < 2) continue;
    if (number - 1 >= configured) found.push_back(number - 1);
  }
  if (configured == 0 && fs::exists(launchAgentsFolder() + "/" + firstLabel + kDescription)) found.push_back(0);
  std::sort(found.begin(), found.end());
  return found;
}

CFDictionaryRef dictionaryIn(CFDictionaryRef dictionary, CFStringRef key) {
  const CFTypeRef value = CFDictionaryGetValue(dictionary, key);
  return value != nullptr && CFGetTypeID(value) == CFDictionaryGetTypeID() ? static_cast<CFDictionaryRef>(value)
                                                                           : nullptr;
}

// Whether a description is kept alive by the trigger file of its label, as those of services are.
bool waitsForTrigger(const CLaunchCtlPList& description, const std::string& trigger) {
  const CFTypeRef root = description.plistData();
  if (root == nullptr || CFGetTypeID(root) != CFDictionaryGetTypeID()) return false;
  const CFDictionaryRef keepAlive = dictionaryIn(static_cast<CFDictionaryRef>(root), CFSTR("KeepAlive"));
  const CFDictionaryRef paths = keepAlive == nullptr ? nullptr : dictionaryIn(keepAlive, CFSTR("PathState"));
  return paths != nullptr && CFDictionaryContainsKey(paths, string(trigger).get());
}

std::optional<Job> jobOfDescription(const std::string& path) {
  try {
    const auto description = plinth::makeShared<CLaunchCtlPList>(CSTR(path));
    const CStringRef label = description->getLabel();
    if (!label || label->isEmpty()) return {};
    Job job;
    job.label = label->str();
    job.path = path;
    job.trigger = triggerOfLabel(job.label);
    if (!waitsForTrigger(*description, job.trigger)) return {};
    return job;
  } catch (const plinth::CException&) {
    return {};  // somebody else's, or damaged: `tovanctl doctor` looks at these
  }
}

std::optional<std::int64_t> integerIn(CFDictionaryRef dictionary, CFStringRef key) {
  const CFTypeRef value = CFDictionaryGetValue(dictionary, key);
  std::int64_t number = 0;
  if (value == nullptr || CFGetTypeID(value) != CFNumberGetTypeID() ||
      !CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt64Type, &number)) {
    return {};
  }
  return number;
}

bool boolIn(CFDictionaryRef dictionary, CFStringRef key) {
  const CFTypeRef value = CFDictionaryGetValue(dictionary, key);
  return value != nullptr && CFGetTypeID(value) == CFBooleanGetTypeID() &&
         CFBooleanGetValue(static_cast<CFBooleanRef>(value)) != 0;
}

std::string textIn(CFDictionaryRef dictionary, CFStringRef key) {
  const CFTypeRef value = CFDictionaryGetValue(dictionary, key);
  if (value == nullptr || CFGetTypeID(value) != CFStringGetTypeID()) return {};
  return text(static_cast<CFStringRef>(value));
}

// The job's dictionary in launchctl's listing; an empty holder when it lists none.
CSharedCFRef<CFDictionaryRef> dictionaryOfListing(const std::string& listing, const std::string& label) {
  const std::size_t start = std::min(listing.find("<?xml"), listing.find("<plist"));
  if (start == std::string::npos) return {};
  const CSharedCFRef<CFDataRef> data(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(listing.data() + start),
                                                  static_cast<CFIndex>(listing.size() - start)));
  const CSharedCFRef<CFPropertyListRef> list(
      CFPropertyListCreateFromXMLData(nullptr, data.get(), kCFPropertyListImmutable, nullptr));
  if (!list || CFGetTypeID(list.get()) != CFDictionaryGetTypeID()) return {};
  const auto job = static_cast<CFDictionaryRef>(list.get());
  if (textIn(job, CFSTR("Label")) != label) return {};
  return CSharedCFRef<CFDictionaryRef>::retaining(job);
}

void runLaunchctl(const Job& job, void (CLaunchCtl::*verb)(), const std::string& what) {
  const auto launchctl = plinth::makeShared<CLaunchCtl>(CSTR(job.path), 0UL, 0UL);
  try {
    ((*launchctl).*verb)();
  } catch (const plinth::CException& error) {
    const CStringRef output = launchctl->getTaskOutput();
    const std::string complaint = output ? output->str() : "";
    const std::string reason = complaint.substr(0, complaint.find_last_not_of(" \r\n") + 1);
    throw CommandError(kFailed, "cannot " + what + " " + job.path + ": " + (reason.empty() ? error.what() : reason));
  }
}

}  // namespace

bool startedByLaunchd(const tovan::CServiceCacheEntry& entry) {
  return tovan::CServiceUtil::launchFlagForService(entry) == tovan::CServiceUtil::kLaunchedByLaunchd;
}

std::string launchAgentsFolder() {
  const CSharedCFRef<CFStringRef> expanded(TovanExpandTildeInPath(CFSTR("~/Library/LaunchAgents")));
  return text(expanded.get());
}

Job jobOfInstance(const tovan::CServiceCacheEntry& entry, unsigned int instance) {
  Job job;
  job.instance = instance;
  job.path = CLaunchCtlPList::expandedPListFilePathForService(entry, instance)->str();
  const std::string file = job.path.substr(job.path.rfind('/') + 1);
  job.label = file.substr(0, file.size() - std::string(kDescription).size());
  job.trigger = triggerOfLabel(job.label);
  return job;
}

std::vector<Job> jobsOfService(const tovan::CServiceCacheEntry& entry) {
  const auto configured =
      static_cast<unsigned int>(std::max(0, tovan::CServiceCacheEntry::ConvertToRealInstanceCount(entry.instances)));
  std::vector<Job> jobs;
  for (unsigned int instance = 0; instance < configured; ++instance) jobs.push_back(jobOfInstance(entry, instance));
  for (const unsigned int instance : furtherInstances(jobOfInstance(entry, 0).label, configured)) {
    jobs.push_back(jobOfInstance(entry, instance));
  }
  return jobs;
}

std::vector<Job> strayJobs(const std::vector<Job>& known) {
  std::vector<Job> found;
  std::error_code missing;
  for (const fs::directory_entry& file : fs::directory_iterator(launchAgentsFolder(), missing)) {
    if (file.path().extension() != kDescription || !file.is_regular_file(missing)) continue;
    const std::optional<Job> job = jobOfDescription(file.path().string());
    if (!job) continue;
    const bool isKnown =
        std::any_of(known.begin(), known.end(), [&job](const Job& one) { return one.label == job->label; });
    if (!isKnown) found.push_back(*job);
  }
  std::sort(found.begin(), found.end(), [](const Job& left, const Job& right) { return left.label < right.label; });
  return found;
}

std::string launchctlListing(const std::string& label) {
  const auto launchctl = plinth::makeShared<CLaunchCtl>(CStringRef(), 0UL, 0UL);
  launchctl->isLoaded(CSTR(label));
  const CStringRef output = launchctl->getTaskOutput();
  return output ? output->str() : "";
}

std::size_t writeMissingDescriptions(const tovan::CServiceCacheEntry& entry) {
  std::size_t written = 0;
  for (const Job& job : jobsOfService(entry)) {
    const auto description = plinth::makeShared<CPListUpdater>(CSTR(job.path), CPListUpdater::Reading::never);
    if (description->fileExists()) continue;
    description->setPListData(CLaunchCtlPList::plistDataForService(entry, job.instance).get());
    description->makeParentDirIfNeeded(0755);
    description->flush();
    ++written;
  }
  return written;
}

void removeDescription(const Job& job) {
  std::error_code failed;
  fs::remove(job.path, failed);
  if (failed) throw CommandError(kFailed, "cannot remove " + job.path + ": " + failed.message());
}

JobState stateOfJob(const Job& job) {
  JobState state;
  std::error_code failed;
  state.trigger = fs::exists(fs::symlink_status(job.trigger, failed));
  const CSharedCFRef<CFDictionaryRef> listed = dictionaryOfListing(launchctlListing(job.label), job.label);
  if (!listed) return state;
  state.loaded = true;
  if (const auto pid = integerIn(listed.get(), CFSTR("PID"))) state.pid = static_cast<pid_t>(*pid);
  // Before the first end the status is 0 too.
  const auto status = integerIn(listed.get(), CFSTR("LastExitStatus"));
  if (status && (*status != 0 || boolIn(listed.get(), CFSTR("HasEnded")))) {
    state.lastExitStatus = static_cast<int>(*status);
  }
  state.problem = textIn(listed.get(), CFSTR("LaunchProblem"));
  return state;
}

void bringUp(const Job& job) {
  const auto description = plinth::makeShared<CLaunchCtlPList>(CStringRef());
  description->addTriggerFile(CSTR(job.trigger));
  runLaunchctl(job, &CLaunchCtl::load, "load");
}

bool takeDown(const Job& job) {
  const auto description = plinth::makeShared<CLaunchCtlPList>(CStringRef());
  const bool removed = description->removeTriggerFile(CSTR(job.trigger));
  if (!stateOfJob(job).loaded) return removed;
  runLaunchctl(job, &CLaunchCtl::unload, "unload");
  return true;
}

}  // namespace tovanctl
