// launch_agent.h: the job of one instance of a service that launchd starts.
//
// All of these throw the exceptions of CLaunchCtlPList, for a launch hint, a name or a file that cannot be used.
#pragma once

#include <tovan/service_cache_file.h>

#include <plinth/string.h>

#include <string>

namespace tovan {

// Writes the instance's job description and gives its path. Makes the folder when it is missing. An older description
// is not read: it is replaced whole, and may be damaged.
plinth::CStringRef writeJobDescription(const CServiceCacheEntry& entry, unsigned int instance);

// Starts the instance's job, or ends it: enabled, its trigger file is made and the job loaded unless launchctl lists
// it; disabled, the trigger file is removed and the job unloaded if launchctl lists it. The label is the one in the job
// description; without a description, the one that it would have.
//
// Throws, too, what CLaunchCtl throws, with the tool's complaint on the console, and CParamException "Launch-agent
// property list PATH has no label".
void syncJob(const CServiceCacheEntry& entry, unsigned int instance, bool enabled);

// Whether the output of `launchctl list -x` is the listing of that job: an XML property list of it, whatever the tool
// said before. Anything else is a complaint about a job that launchd does not know.
bool listsJob(const std::string& output, const plinth::CStringRef& label);

}  // namespace tovan
