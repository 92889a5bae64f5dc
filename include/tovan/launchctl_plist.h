// launchctl_plist.h: CLaunchCtlPList, the launchd job description under which an instance of a service runs as a launch
// agent of its user. docs/job-description.md describes the format, with an example.
//
// The description's label is the identifier in the service kind (the text after its first colon); from instance 1 on,
// "-" and the instance number plus one follow, so the second instance ends in "-2". The file is
// "~/Library/LaunchAgents/LABEL.plist". launchd runs the job while its trigger file exists.
//
// An identifier becomes a file name, so one that is empty or holds a slash or a NUL is refused with CParamException
// "Invalid service identifier in service kind %s".
//
// CPListUpdater's rules on ownership and threads hold. Only flush() and its like write the description; of the
// operations here, only the two on trigger files touch the disk.
#pragma once

#include <tovan/export.h>
#include <tovan/plist_updater.h>
#include <tovan/service_cache_file.h>

#include <plinth/shared_cf_ref.h>
#include <plinth/string.h>

#include <CoreFoundation/CFDictionary.h>

#include <vector>

namespace tovan {

class TOVAN_EXPORT CLaunchCtlPList : public CPListUpdater {
 public:
  // Reads the file when the path is not empty and the file exists; throws as CPListUpdater does.
  explicit CLaunchCtlPList(const plinth::CStringRef& path);
  ~CLaunchCtlPList() override;

  // The setters raise CNullPointerException when there is no list ("Error: plistData() is null!" for the label and the
  // arguments, "Error: plistDict.getObjectRef() is null!" for the others) and CParamException "Job description is not a
  // dictionary" when its root is something else. The getters take a value of the wrong type for a missing one.

  // The "Label" string; an empty holder when there is none.
  plinth::CStringRef getLabel() const;
  // An empty holder is stored as the empty string.
  void setLabel(const plinth::CStringRef& label);
  // The label of a service's instance, counted from 0. CParamException "Can't find service family in service kind %s"
  // for a kind without a colon.
  void setLabelForService(const CServiceCacheEntry& entry, unsigned int instance);

  // The strings of "ProgramArguments", in order; elements of other types are passed over.
  std::vector<plinth::CStringRef> getProgramArguments() const;
  // Passes over empty holders.
  void setProgramArguments(const std::vector<plinth::CStringRef>& arguments);
  // The command line that CServiceUtil::buildServiceArgs makes of the entry, its service path brought up to date, and
  // of the instance's entry in the service configuration file (an empty one when it has none). Throws as those do.
  void setProgramArgumentsForService(const CServiceCacheEntry& entry, unsigned int instance);

  // Whether "RunAtLoad" is true.
  bool getRunAtLoad() const;
  // True makes launchd run the job at once and always ("KeepAlive" becomes true and its conditions are lost); false
  // removes "RunAtLoad" and leaves "KeepAlive" as it is.
  void setRunAtLoad(bool runAtLoad);

  // Keeps the job running while the path exists (true) or while it does not (false). CParamException "Invalid
  // \"KeepAlive\" dictionary" when "KeepAlive" is no dictionary, so after setRunAtLoad(true) always, and "Invalid
  // \"PathState\" dictionary" likewise.
  void addKeepAlivePathState(const plinth::CStringRef& path, bool exists);

  // "/tmp/LABEL.launchagent", and per user "." and the effective user id behind it: gone after a restart of the host.
  // An empty holder without a label; CParamException "Invalid label %s" for a label that is no file name.
  plinth::CStringRef getTransientTriggerFilePath(bool perUser) const;
  // "~/Library/LaunchAgents/LABEL.launchagent", the tilde expanded: stays. An empty holder for false, and as above.
  plinth::CStringRef getPersistentTriggerFilePath(bool wanted) const;

  // Creates the file, empty, with mode 0644. Whatever is there already counts as success and is left alone: links are
  // not followed and nothing is opened. CNullPointerException "Error: path is null!" for an empty holder, here and
  // below; CParamException "CLaunchCtlPList::addTriggerFile: failed to create trigger file %s, error = REASON".
  void addTriggerFile(const plinth::CStringRef& path) const;
  // Whether there was a file to remove. CParamException "CLaunchCtlPList::removeTriggerFile: failed to remove trigger
  // file %s, error = REASON".
  bool removeTriggerFile(const plinth::CStringRef& path) const;

  // Where an instance's description lies, beginning with the tilde. CParamException "Unsupported service launch hint:
  // %s" unless the entry's launch hint is "launchd.LaunchAgent.User", and as setLabelForService().
  static plinth::CStringRef plistFilePathForService(const CServiceCacheEntry& entry, unsigned int instance);
  // The same with the tilde expanded.
  static plinth::CStringRef expandedPListFilePathForService(const CServiceCacheEntry& entry, unsigned int instance);

  // The whole description of an instance: the template with its label, its arguments, no "RunAtLoad", and kept alive by
  // the transient trigger file of the current user. Throws as setLabelForService() and setProgramArgumentsForService().
  static plinth::CSharedCFRef<CFDictionaryRef> plistDataForService(const CServiceCacheEntry& entry,
                                                                   unsigned int instance);
  // The template from which every description starts.
  static plinth::CSharedCFRef<CFDictionaryRef> plistDataForGenericService();

 private:
  plinth::CSharedCFRef<CFMutableDictionaryRef> mutableList(const char* errorWithoutList) const;
  plinth::CStringRef labelAsFileName() const;
};

using CLaunchCtlPListRef = plinth::CSharedObjectRef<CLaunchCtlPList>;

}  // namespace tovan
