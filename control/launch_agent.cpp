#include "control/launch_agent.h"

#include <tovan/cf_util.h>
#include <tovan/launch_ctl.h>
#include <tovan/launchctl_plist.h>
#include <tovan/plist_updater.h>

#include <plinth/exception.h>
#include <plinth/shared_cf_ref.h>
#include <plinth/shared_object.h>

#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFPropertyList.h>

#include <algorithm>

namespace tovan {

using plinth::CParamException;
using plinth::CSharedCFRef;
using plinth::CStringRef;

namespace {

CLaunchCtlPListRef jobDescription(const CServiceCacheEntry& entry, unsigned int instance, const CStringRef& path) {
  auto job = plinth::makeShared<CLaunchCtlPList>(path);
  if (job->plistData() == nullptr) job->setPListData(CLaunchCtlPList::plistDataForService(entry, instance).get());
  const CStringRef label = job->getLabel();
  if (!label || label->isEmpty())
    throw CParamException("Launch-agent property list %s has no label", path->getUTF8Ptr());
  return job;
}

bool isLoaded(CLaunchCtl& launchctl, const CStringRef& label) {
  launchctl.isLoaded(label);
  const CStringRef listing = launchctl.getTaskOutput();
  return listing && listsJob(listing->str(), label);
}

// The exception says no more than the tool's exit status.
void runShowingComplaint(CLaunchCtl& launchctl, void (CLaunchCtl::*operation)(), const char* verb,
                         const CStringRef& path) {
  try {
    (launchctl.*operation)();
  } catch (const plinth::CException&) {
    const CStringRef complaint = plinth::CString::nullToEmptyString(launchctl.getTaskOutput());
    const CStringRef line =
        plinth::CString::sprintf("launchctl %s %s failed: %s\n", verb, path->getUTF8Ptr(), complaint->getUTF8Ptr());
    CFUtil::LogToConsole(line->getUTF8Ptr());
    throw;
  }
}

}  // namespace

CStringRef writeJobDescription(const CServiceCacheEntry& entry, unsigned int instance) {
  CStringRef path = CLaunchCtlPList::expandedPListFilePathForService(entry, instance);
  const auto job = plinth::makeShared<CPListUpdater>(path, CPListUpdater::Reading::never);
  job->setPListData(CLaunchCtlPList::plistDataForService(entry, instance).get());
  job->makeParentDirIfNeeded(0755);
  job->flush();
  return path;
}

void syncJob(const CServiceCacheEntry& entry, unsigned int instance, bool enabled) {
  const CStringRef path = CLaunchCtlPList::expandedPListFilePathForService(entry, instance);
  const CLaunchCtlPListRef job = jobDescription(entry, instance, path);
  const CLaunchCtlRef launchctl = plinth::makeShared<CLaunchCtl>(path, 0UL, 0UL);
  const CStringRef trigger = job->getTransientTriggerFilePath(true);
  const CStringRef label = job->getLabel();
  if (enabled) {
    job->addTriggerFile(trigger);
    if (!isLoaded(*launchctl, label)) runShowingComplaint(*launchctl, &CLaunchCtl::load, "load", path);
  } else {
    job->removeTriggerFile(trigger);
    if (isLoaded(*launchctl, label)) runShowingComplaint(*launchctl, &CLaunchCtl::unload, "unload", path);
  }
}

bool listsJob(const std::string& output, const CStringRef& label) {
  const std::size_t start = std::min(output.find("<?xml"), output.find("<plist"));
  if (start == std::string::npos) return false;
  const CSharedCFRef<CFDataRef> text(CFDataCreate(kCFAllocatorDefault,
                                                  reinterpret_cast<const UInt8*>(output.data() + start),
                                                  static_cast<CFIndex>(output.size() - start)));
  const CSharedCFRef<CFPropertyListRef> listing(
      CFPropertyListCreateFromXMLData(kCFAllocatorDefault, text.get(), kCFPropertyListImmutable, nullptr));
  if (!listing || CFGetTypeID(listing.get()) != CFDictionaryGetTypeID()) return false;
  CFStringRef listed = nullptr;
  CFUtil::CFDictGetString(static_cast<CFDictionaryRef>(listing.get()), CFSTR("Label"), listed);
  return listed != nullptr && CFEqual(listed, label->getStringRef());
}

}  // namespace tovan
