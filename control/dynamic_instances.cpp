#include <tovan/dynamic_instances.h>

#include "control/launch_agent.h"
#include "plist/path_text.h"

#include <tovan/launchctl_plist.h>
#include <tovan/service_cache_file.h>
#include <tovan/service_util.h>

#include <plinth/exception.h>
#include <plinth/shared_object.h>
#include <plinth/string.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

using plinth::CStringRef;
using tovan::CLaunchCtlPList;
using tovan::CServiceCacheEntry;
using tovan::CServiceUtil;

namespace {

// The entry of a service that launchd starts.
std::optional<CServiceCacheEntry> launchdService(CFStringRef name) {
  const tovan::CServiceCacheFile file;
  CServiceCacheEntry entry;
  if (name == nullptr || !file.get(name, entry)) return std::nullopt;
  if (CServiceUtil::launchFlagForService(entry) != CServiceUtil::kLaunchedByLaunchd) return std::nullopt;
  return entry;
}

// The number of the instance with that dynamic index. Labels count from 1, so the highest number is not to be had.
unsigned int instanceNumber(const CServiceCacheEntry& entry, unsigned int index) {
  const std::int32_t configured = CServiceCacheEntry::ConvertToRealInstanceCount(entry.instances);
  const std::int64_t number = std::int64_t{configured} + index;
  if (number >= std::numeric_limits<unsigned int>::max()) {
    throw plinth::CParamException("Instance number of service %s out of range", tovan::pathText(entry.name()).c_str());
  }
  return static_cast<unsigned int>(number);
}

// Calls the action with the entry and the numbers of the first `count` dynamic instances.
template <class Action>
void forEachInstance(CFStringRef name, unsigned int count, Action&& action) {
  const auto entry = launchdService(name);
  if (!entry || count == 0) return;
  const unsigned int first = instanceNumber(*entry, 0);
  const unsigned int last = instanceNumber(*entry, count - 1);
  for (unsigned int instance = first; instance <= last; ++instance) action(*entry, instance);
}

// What follows the first "-id" of a job description.
CStringRef identifierIn(const CStringRef& path) {
  const std::vector<CStringRef> arguments = plinth::makeShared<CLaunchCtlPList>(path)->getProgramArguments();
  const CStringRef option = plinth::CSTR("-id");
  const auto found = std::find(arguments.begin(), arguments.end(), option);
  const bool hasValue = found != arguments.end() && found + 1 != arguments.end();
  return hasValue ? *(found + 1) : nullptr;
}

}  // namespace

void installDynamicServiceInstances(CFStringRef name, unsigned int count) {
  forEachInstance(name, count, [](const CServiceCacheEntry& entry, unsigned int instance) {
    tovan::writeJobDescription(entry, instance);
  });
}

void syncDynamicServiceInstances(CFStringRef name, unsigned int count, bool enable) {
  forEachInstance(name, count, [enable](const CServiceCacheEntry& entry, unsigned int instance) {
    tovan::syncJob(entry, instance, enable);
  });
}

CFStringRef installDynamicServiceInstance(CFStringRef name, unsigned int index) {
  const auto entry = launchdService(name);
  if (!entry) return nullptr;
  const CStringRef identifier = identifierIn(tovan::writeJobDescription(*entry, instanceNumber(*entry, index)));
  return identifier ? CFStringCreateCopy(kCFAllocatorDefault, identifier->getStringRef()) : nullptr;
}

void syncDynamicServiceInstance(CFStringRef name, unsigned int index, bool enable) {
  const auto entry = launchdService(name);
  if (entry) tovan::syncJob(*entry, instanceNumber(*entry, index), enable);
}
