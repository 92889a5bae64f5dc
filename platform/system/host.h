// host.h: what this machine is called and where it is reached.
//
// Safe from any thread. Nothing here asks a name server: a host that is cut off from its network answers as fast as any
// other. Names come from the host's own files only.
#pragma once

#include "platform/system/export.h"

#include <string>
#include <vector>

namespace platform {

// The name that people gave the machine: PRETTY_HOSTNAME of /etc/machine-info (see machine-info(5)), else the host
// name. Empty when there is neither.
PLATFORM_EXPORT std::string machineName();

// The host name, then the names and aliases that /etc/hosts gives to the lines that carry it, then "localhost"; each
// once, none empty.
PLATFORM_EXPORT std::vector<std::string> hostNames();

// The numeric addresses of the interfaces that are up, each once: IPv4 before IPv6, the loopback's last in each family.
// IPv6 link-local addresses carry their zone ("fe80::1%eth0"). Empty when the system refuses the list.
PLATFORM_EXPORT std::vector<std::string> hostAddresses();

namespace internal {

// The value of `key` in the text of a machine-info file: KEY=value lines, shell-style quotes and escapes, comments;
// the last one counts. Empty when there is none.
PLATFORM_EXPORT std::string machineInfoValue(const std::string& content, const std::string& key);

// The names that a hosts file's text gives to the lines that carry `name`, that name left out, each once.
PLATFORM_EXPORT std::vector<std::string> hostsFileNames(const std::string& content, const std::string& name);

}  // namespace internal

}  // namespace platform
