#include <tovan/launchctl_plist.h>

#include "launch/service_label.h"
#include "launch/xml_list.h"
#include "platform/system/descriptor.h"
#include "platform/system/error_text.h"

#include <tovan/cf_util.h>
#include <tovan/file_util.h>
#include <tovan/service_config_file.h>
#include <tovan/service_util.h>

#include <plinth/exception.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace tovan {

using plinth::CNullPointerException;
using plinth::CParamException;
using plinth::CSharedCFRef;
using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;

namespace {

constexpr const char* kJobTemplate =
    "<plist version=\"1.0\">\n"
    "<dict>\n"
    "\t<key>Label</key>\n"
    "\t<string></string>\n"
    "\t<key>RunAtLoad</key>\n"
    "\t<false/>\n"
    "\t<key>KeepAlive</key>\n"
    "\t<dict>\n"
    "\t\t<key>SuccessfulExit</key>\n"
    "\t\t<true/>\n"
    "\t</dict>\n"
    "\t<key>ExitTimeOut</key>\n"
    "\t<integer>30</integer>\n"
    "\t<key>ProgramArguments</key>\n"
    "\t<array>\n"
    "\t</array>\n"
    "</dict>\n"
    "</plist>\n";

constexpr const char* kLaunchAgentHint = "launchd.LaunchAgent.User";

// The two names under which a missing list is reported.
constexpr const char* kMissingList = "Error: plistData() is null!";
constexpr const char* kMissingCopy = "Error: plistDict.getObjectRef() is null!";

// Beginning with the tilde.
CStringRef pathInLaunchAgents(const CStringRef& label, const char* extension) {
  return CString::sprintf("~/Library/LaunchAgents/%@%s", label->getStringRef(), extension);
}

CStringRef expandTilde(const CStringRef& path) {
  const CSharedCFRef<CFStringRef> expanded(CFileUtil::expandTildeInPath(path->getStringRef()));
  return CSTR(expanded.get());
}

CFDictionaryRef asDictionary(CFTypeRef object) {
  const bool is = object != nullptr && CFGetTypeID(object) == CFDictionaryGetTypeID();
  return is ? static_cast<CFDictionaryRef>(object) : nullptr;
}

// A mutable copy of the dictionary under a key, or a new one when there is nothing; anything else is an error.
CSharedCFRef<CFMutableDictionaryRef> copyInner(CFDictionaryRef list, CFStringRef key, const char* error) {
  CFTypeRef held = nullptr;
  if (!CFUtil::CFDictGet(list, key, held)) return CFUtil::CFDictMakeMutable();
  if (asDictionary(held) == nullptr) throw CParamException(error);
  return CFUtil::CFDictMakeMutableCopy(asDictionary(held));
}

const char* requirePath(const CStringRef& path) {
  if (!path) throw CNullPointerException("Error: path is null!");
  return path->getUTF8Ptr();
}

}  // namespace

CLaunchCtlPList::CLaunchCtlPList(const CStringRef& path) : CPListUpdater(path) {}

CLaunchCtlPList::~CLaunchCtlPList() = default;

CSharedCFRef<CFMutableDictionaryRef> CLaunchCtlPList::mutableList(const char* errorWithoutList) const {
  if (plistData() == nullptr) throw CNullPointerException("%s", errorWithoutList);
  const CFDictionaryRef list = asDictionary(plistData());
  if (list == nullptr) throw CParamException("Job description is not a dictionary");
  return CFUtil::CFDictMakeMutableCopy(list);
}

CStringRef CLaunchCtlPList::getLabel() const {
  CFStringRef label = nullptr;
  CFUtil::CFDictGetString(asDictionary(plistData()), CFSTR("Label"), label);
  return CSTR(label);
}

void CLaunchCtlPList::setLabel(const CStringRef& label) {
  const auto list = mutableList(kMissingList);
  CFUtil::CFDictSetString(list.get(), CFSTR("Label"), CString::nullToEmptyString(label)->getStringRef());
  setPListData(list.get());
}

void CLaunchCtlPList::setLabelForService(const CServiceCacheEntry& entry, unsigned int instance) {
  setLabel(labelForService(entry, instance));
}

std::vector<CStringRef> CLaunchCtlPList::getProgramArguments() const {
  std::vector<CStringRef> arguments;
  CFTypeRef held = nullptr;
  CFUtil::CFDictGet(asDictionary(plistData()), CFSTR("ProgramArguments"), held);
  if (held == nullptr || CFGetTypeID(held) != CFArrayGetTypeID()) return arguments;
  const auto array = static_cast<CFArrayRef>(held);
  for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
    const CFTypeRef element = CFArrayGetValueAtIndex(array, i);
    if (CFGetTypeID(element) == CFStringGetTypeID()) arguments.push_back(CSTR(static_cast<CFStringRef>(element)));
  }
  return arguments;
}

void CLaunchCtlPList::setProgramArguments(const std::vector<CStringRef>& arguments) {
  const auto list = mutableList(kMissingList);
  const CSharedCFRef<CFMutableArrayRef> array(CFUtil::CFArrayMakeMutable());
  for (const CStringRef& argument : arguments) {
    if (argument) CFArrayAppendValue(array.get(), argument->getStringRef());
  }
  CFUtil::CFDictSet(list.get(), CFSTR("ProgramArguments"), array.get());
  setPListData(list.get());
}

void CLaunchCtlPList::setProgramArgumentsForService(const CServiceCacheEntry& entry, unsigned int instance) {
  const CServiceConfigFile configurations(entry.name());
  CServiceConfigEntry configuration;
  configurations.getAtIndex(static_cast<CFIndex>(instance), configuration);
  CServiceCacheEntry current(entry.name(), entry.toDict().get());
  current.updateRuntimeServicePath();
  setProgramArguments(CServiceUtil::buildServiceArgs(current, configuration, static_cast<long>(instance)));
}

bool CLaunchCtlPList::getRunAtLoad() const {
  bool runAtLoad = false;
  CFUtil::CFDictGetBoolean(asDictionary(plistData()), CFSTR("RunAtLoad"), runAtLoad);
  return runAtLoad;
}

void CLaunchCtlPList::setRunAtLoad(bool runAtLoad) {
  const auto list = mutableList(kMissingCopy);
  if (runAtLoad) {
    CFUtil::CFDictSetBoolean(list.get(), CFSTR("RunAtLoad"), true);
    CFUtil::CFDictSetBoolean(list.get(), CFSTR("KeepAlive"), true);
  } else {
    CFUtil::CFDictSet(list.get(), CFSTR("RunAtLoad"), nullptr);
  }
  setPListData(list.get());
}

void CLaunchCtlPList::addKeepAlivePathState(const CStringRef& path, bool exists) {
  requirePath(path);
  const auto list = mutableList(kMissingCopy);
  const auto keepAlive = copyInner(list.get(), CFSTR("KeepAlive"), "Invalid \"KeepAlive\" dictionary");
  const auto pathState = copyInner(keepAlive.get(), CFSTR("PathState"), "Invalid \"PathState\" dictionary");
  CFUtil::CFDictSetBoolean(pathState.get(), path->getStringRef(), exists);
  CFUtil::CFDictSet(keepAlive.get(), CFSTR("PathState"), pathState.get());
  CFUtil::CFDictSet(list.get(), CFSTR("KeepAlive"), keepAlive.get());
  setPListData(list.get());
}

CStringRef CLaunchCtlPList::labelAsFileName() const {
  CStringRef label = getLabel();
  if (label && label->getLength() > 0 && !isFileName(label->getStringRef())) {
    throw CParamException("Invalid label %s", label->getUTF8Ptr());
  }
  return label;
}

CStringRef CLaunchCtlPList::getTransientTriggerFilePath(bool perUser) const {
  const CStringRef label = labelAsFileName();
  if (!label) return nullptr;
  CStringRef path = CString::sprintf("/tmp/%@.launchagent", label->getStringRef());
  if (!perUser) return path;
  return CString::sprintf("%@.%lu", path->getStringRef(), static_cast<unsigned long>(::geteuid()));
}

CStringRef CLaunchCtlPList::getPersistentTriggerFilePath(bool wanted) const {
  const CStringRef label = wanted ? labelAsFileName() : nullptr;
  return label ? expandTilde(pathInLaunchAgents(label, ".launchagent")) : nullptr;
}

void CLaunchCtlPList::addTriggerFile(const CStringRef& path) const {
  const char* const file = requirePath(path);
  // An exclusive creation neither follows a link nor opens what is there.
  const auto trigger = platform::Descriptor::open(file, O_RDWR | O_CREAT | O_EXCL, 0644);
  if (trigger || errno == EEXIST) return;
  throw CParamException("CLaunchCtlPList::addTriggerFile: failed to create trigger file %s, error = %s", file,
                        platform::errorText(errno).c_str());
}

bool CLaunchCtlPList::removeTriggerFile(const CStringRef& path) const {
  const char* const file = requirePath(path);
  if (::unlink(file) == 0) return true;
  if (errno == ENOENT) return false;
  throw CParamException("CLaunchCtlPList::removeTriggerFile: failed to remove trigger file %s, error = %s", file,
                        platform::errorText(errno).c_str());
}

CStringRef CLaunchCtlPList::plistFilePathForService(const CServiceCacheEntry& entry, unsigned int instance) {
  const CStringRef hint = CString::nullToEmptyString(CSTR(entry.launchHint()));
  if (*hint != *CSTR(kLaunchAgentHint)) {
    throw CParamException("Unsupported service launch hint: %s", hint->getUTF8Ptr());
  }
  return pathInLaunchAgents(labelForService(entry, instance), ".plist");
}

CStringRef CLaunchCtlPList::expandedPListFilePathForService(const CServiceCacheEntry& entry, unsigned int instance) {
  return expandTilde(plistFilePathForService(entry, instance));
}

CSharedCFRef<CFDictionaryRef> CLaunchCtlPList::plistDataForService(const CServiceCacheEntry& entry,
                                                                   unsigned int instance) {
  const CLaunchCtlPListRef job = plinth::makeShared<CLaunchCtlPList>(nullptr);
  job->setPListData(plistDataForGenericService().get());
  job->setLabelForService(entry, instance);
  job->setProgramArgumentsForService(entry, instance);
  job->setRunAtLoad(false);
  job->addKeepAlivePathState(job->getTransientTriggerFilePath(true), true);
  return CSharedCFRef<CFDictionaryRef>::retaining(asDictionary(job->plistData()));
}

CSharedCFRef<CFDictionaryRef> CLaunchCtlPList::plistDataForGenericService() {
  CSharedCFRef<CFPropertyListRef> list = listFromXML(kJobTemplate);
  return static_cast<CFDictionaryRef>(list.take());
}

}  // namespace tovan
