// bus_private.h: a message bus of the user's own, for a system that brings none.
//
// It is a dbus-daemon in a folder that belongs to the user alone (mode 0700). The folder holds its socket "bus", its
// configuration "bus.conf" and the lock file "lock". Any number of processes may start it together: the socket is
// tried, the lock taken, the socket tried again, and only then a daemon started, because a second one would take a live
// socket away from the first and split the bus. It belongs to no terminal and no session, holds none of its starter's
// descriptors, and runs until it is ended.
#pragma once

#include "platform/corefoundation/run_loop.h"

#include <optional>
#include <string>

namespace cf {

// The path of the socket of the bus in that folder, which answers; the folder and the daemon are made when they are not
// there. On failure nothing, and `failure` says why: the folder is another's or open to others, the socket's path is
// longer than 99 bytes, there is no dbus-daemon to run, or the deadline has passed.
std::optional<std::string> startPrivateBus(const std::string& folder, MonotonicTime deadline, std::string& failure);

}  // namespace cf
