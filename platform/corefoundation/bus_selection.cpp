#include "platform/corefoundation/bus_selection.h"

#include <atomic>
#include <cerrno>
#include <cstring>

namespace cf {
namespace {

constexpr MonotonicTime kLoyalty = 10'000'000'000;
constexpr int kNowhere = -1;

// The place that this process was last connected to, and until when it is the only one, once the bus there is lost.
constinit std::atomic<int> lastPlace = kNowhere;
constinit std::atomic<MonotonicTime> loyalUntil = 0;

bool tryPlace(BusPlace place, MonotonicTime deadline, ChosenBus& chosen) {
  const std::optional<std::string> address = busAddress(place, deadline, chosen.failure);
  if (!address) return false;
  int error = 0;
  chosen.connection = BusConnection::open(*address, deadline, error);
  chosen.place = place;
  chosen.timedOut = error == ETIMEDOUT;
  if (!chosen.connection) {
    chosen.failure = *address + ": " + std::strerror(error);
    return false;
  }
  lastPlace.store(static_cast<int>(place), std::memory_order_relaxed);
  loyalUntil.store(0, std::memory_order_relaxed);
  return true;
}

}  // namespace

ChosenBus connectToBus(MonotonicTime deadline) {
  ChosenBus chosen;
  const int last = lastPlace.load(std::memory_order_relaxed);
  // The bus on demand comes last anyway, and is started again when it is gone.
  if (last != kNowhere && last != static_cast<int>(BusPlace::onDemand)) {
    if (tryPlace(static_cast<BusPlace>(last), deadline, chosen)) return chosen;
    busWasLost();  // nobody else may have noticed yet
    if (chosen.timedOut || monotonicNow() < loyalUntil.load(std::memory_order_relaxed)) return chosen;
  }
  for (const BusPlace place : {BusPlace::session, BusPlace::user, BusPlace::onDemand}) {
    // A bus that is there and hangs is the one to wait for.
    if (tryPlace(place, deadline, chosen) || chosen.timedOut) return chosen;
  }
  return chosen;
}

ChosenBus connectToBetterBus(BusPlace than, MonotonicTime deadline) {
  ChosenBus chosen;
  for (const BusPlace place : {BusPlace::session, BusPlace::user}) {
    if (place == than || tryPlace(place, deadline, chosen) || chosen.timedOut) break;
  }
  return chosen;
}

void busWasLost() {
  MonotonicTime unset = 0;
  loyalUntil.compare_exchange_strong(unset, monotonicNow() + kLoyalty, std::memory_order_relaxed);
}

}  // namespace cf
