// bus_address.h: where the user's message bus is.
//
// Every process of a user must arrive at the same bus, whatever environment it was started in. The places, in order:
//   1. the session's own address, DBUS_SESSION_BUS_ADDRESS
//   2. the user's bus, /run/user/UID/bus, when that is a socket of the user's own
//   3. the private bus of bus_private.h, started on demand
// A place that nobody answers at is passed over. TOVAN_BUS_FOLDER, an absolute path, puts the private bus into that
// folder and takes the second place out of the list: a bus for tests and for closed environments.
#pragma once

#include "platform/corefoundation/run_loop.h"

#include <sys/types.h>

#include <optional>
#include <string>

namespace cf {

enum class BusPlace { session, user, onDemand };

// The address to connect to, as D-Bus writes addresses; nothing when there is no bus at that place. For the bus on
// demand the call starts it when it is not up, and may take until the deadline; `failure` then says why there is none.
std::optional<std::string> busAddress(BusPlace place, MonotonicTime deadline, std::string& failure);

// An address for the socket at a path: "unix:path=", with every byte that addresses may not hold written as %XX.
std::string unixBusAddress(const std::string& path);

}  // namespace cf
