// bus_connection.h: one connection to a message bus, through sd-bus.
//
// It belongs to the thread that opened it. No call blocks for ever: each takes a deadline or has a time-out, and a
// connection on which one has passed is of no use any more. Losing the bus is an error like any other; it neither ends
// the process nor raises SIGPIPE.
#pragma once

#include "platform/corefoundation/run_loop.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

struct sd_bus;
struct sd_bus_message;

namespace cf {

// Owns one reference to a message.
class BusMessage {
 public:
  BusMessage() noexcept = default;
  explicit BusMessage(sd_bus_message* taken) noexcept : message_(taken) {}
  BusMessage(BusMessage&& other) noexcept : message_(std::exchange(other.message_, nullptr)) {}
  BusMessage& operator=(BusMessage&& other) noexcept {
    std::swap(message_, other.message_);
    return *this;
  }
  BusMessage(const BusMessage&) = delete;
  BusMessage& operator=(const BusMessage&) = delete;
  ~BusMessage();

  sd_bus_message* get() const noexcept { return message_; }
  explicit operator bool() const noexcept { return message_ != nullptr; }

 private:
  sd_bus_message* message_ = nullptr;
};

class BusConnection {
 public:
  // A connection that the bus has greeted, or null; `error` is then the errno, ETIMEDOUT when the deadline has passed.
  static std::unique_ptr<BusConnection> open(const std::string& address, MonotonicTime deadline, int& error);
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;
  // Closes it at once, with what has not been written.
  ~BusConnection();

  sd_bus* get() const noexcept { return bus_; }
  // The socket, for the run loop and for closing in a forked child.
  int descriptor() const noexcept { return descriptor_; }

  // Writes a message out completely. 0 or an errno; what happens to the message on an error is unknown.
  int send(sd_bus_message* message, MonotonicTime deadline);
  // Waits until the bus has read everything that was sent. 0 or an errno.
  int roundTrip(MonotonicTime deadline);

  // The match rules that say which signals the bus sends here. The first is in force when it returns; 0 or an errno,
  // where an error of the bus itself (too many rules) leaves the connection as it was, which `refused` says. The others
  // only send: rules that are added in bulk are in force after the next round trip.
  int addMatch(const std::string& rule, MonotonicTime deadline, bool& refused);
  int addMatches(const std::vector<std::string>& rules);
  int removeMatch(const std::string& rule);

  // What to wait for before the next `process`, as the run loop wants it.
  DescriptorSource::Interest interest() const;

  enum class Step {
    idle,      // nothing more to do for the moment
    internal,  // something was done that is nobody's business
    message,   // a message for us
    lost       // the connection is over
  };
  // Does one piece of work, without waiting.
  Step process(BusMessage& message);

 private:
  explicit BusConnection(sd_bus* taken) noexcept : bus_(taken) {}
  int awaitGreeting(MonotonicTime deadline);

  sd_bus* bus_;
  int descriptor_ = -1;
};

}  // namespace cf
