// bus_selection.h: which of the possible buses this process is on.
//
// A process goes to the first place that answers (bus_address.h). When it loses its bus, it gives that bus ten seconds
// to come back before it looks at the other places again: a bus that is being restarted must not scatter its processes.
#pragma once

#include "platform/corefoundation/bus_address.h"
#include "platform/corefoundation/bus_connection.h"

#include <memory>
#include <string>

namespace cf {

struct ChosenBus {
  std::unique_ptr<BusConnection> connection;  // null: there is no bus
  BusPlace place = BusPlace::session;
  bool timedOut = false;  // a bus is there but does not answer
  std::string failure;    // why there is none, for people
};

// Any thread; the connection belongs to the calling one.
ChosenBus connectToBus(MonotonicTime deadline);
// The same among the places that come before this one.
ChosenBus connectToBetterBus(BusPlace than, MonotonicTime deadline);
// The bus at this place broke off.
void busWasLost();

}  // namespace cf
