// services_running.h: bringing services up and down and waiting until they are.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/tovanctl/status.h"

namespace tovanctl {

// The entry of each name. CommandError(kUnknownName), with the nearest name, for the first that is not installed.
std::vector<tovan::CServiceCacheEntry> servicesOfNames(const std::vector<std::string>& names);

// syncServices, with the job descriptions in place that it needs.
void synchronise(const std::vector<std::string>& names);

// Looks at the services again and again until each meets the condition or the deadline has come, and gives the last
// look.
std::vector<ServiceState> awaitServices(const std::vector<std::string>& names, Deadline deadline,
                                        const std::function<bool(const ServiceState&)>& condition);

// Prints a line for each service: what runs of it. CommandError(kFailed) at the end when one does not meet the
// condition.
void reportServices(const std::vector<ServiceState>& services,
                    const std::function<bool(const ServiceState&)>& condition);

// Refuses to go on where services that the daemon starts are to run and it does not: CommandError(kFailed).
void requireDaemonFor(const std::vector<std::string>& names);

}  // namespace tovanctl
