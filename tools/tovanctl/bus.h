// bus.h: whether the message bus that carries the notifications is there, without starting one.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tovanctl {

struct BusState {
  bool reachable = false;
  std::string address;  // of the bus that answered; empty when none did
  std::string place;    // where that is: "session", "user" or "on demand"
  std::string problem;  // why each of the places was passed over; empty when the first one answered
};

// Looks where the library looks, in its order (docs/notifications.md), and says hello there. The bus on demand is
// looked at, not started. At most a second for each place.
BusState lookAtBus();

// Posts a notification to this process itself, which starts the bus on demand where that is needed, and tells how long
// it took in seconds; nothing when it did not come back in that time.
std::optional<double> roundTrip(double seconds);

}  // namespace tovanctl
