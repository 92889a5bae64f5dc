#include "platform/corefoundation/bus_connection.h"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <ctime>

namespace cf {
namespace {

constexpr const char* kBusName = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";

// sd-bus counts in microseconds, and takes 0 for its own default.
std::uint64_t microsecondsUntil(MonotonicTime deadline) {
  const MonotonicTime left = deadline - monotonicNow();
  return left < 1000 ? 1 : static_cast<std::uint64_t>(left / 1000);
}

class BusError {
 public:
  BusError() = default;
  BusError(const BusError&) = delete;
  BusError& operator=(const BusError&) = delete;
  ~BusError() { sd_bus_error_free(&error_); }
  sd_bus_error* get() { return &error_; }
  // Whether the other side answered with an error, in contrast to one of this side's.
  bool cameFromTheBus() const { return sd_bus_error_is_set(&error_) != 0 && !isLocal(); }

 private:
  // sd-bus gives its own failures names of this kind.
  bool isLocal() const {
    return sd_bus_error_has_name(&error_, SD_BUS_ERROR_NO_REPLY) != 0 ||
           sd_bus_error_has_name(&error_, SD_BUS_ERROR_TIMEOUT) != 0 ||
           sd_bus_error_has_name(&error_, SD_BUS_ERROR_DISCONNECTED) != 0 ||
           std::string_view(error_.name).rfind("System.Error.", 0) == 0;
  }
  sd_bus_error error_{nullptr, nullptr, 0};
};

}  // namespace

BusMessage::~BusMessage() {
  if (message_ != nullptr) sd_bus_message_unref(message_);
}

std::unique_ptr<BusConnection> BusConnection::open(const std::string& address, MonotonicTime deadline, int& error) {
  for (;;) {
    sd_bus* made = nullptr;
    int result = sd_bus_new(&made);
    if (result < 0) {
      error = -result;
      return nullptr;
    }
    std::unique_ptr<BusConnection> connection(new BusConnection(made));
    result = sd_bus_set_address(made, address.c_str());
    if (result >= 0) result = sd_bus_set_bus_client(made, 1);
    if (result >= 0) result = sd_bus_negotiate_fds(made, 0);
    if (result >= 0) result = sd_bus_set_exit_on_disconnect(made, 0);
    if (result >= 0) result = sd_bus_start(made);
    // The bus's queue of callers is full.
    if (result == -EAGAIN && monotonicNow() < deadline) {
      const timespec pause{0, 2000000};
      ::nanosleep(&pause, nullptr);
      continue;
    }
    if (result >= 0) result = -connection->awaitGreeting(deadline);
    if (result < 0) {
      error = -result;
      return nullptr;
    }
    connection->descriptor_ = sd_bus_get_fd(made);
    return connection;
  }
}

BusConnection::~BusConnection() { sd_bus_close_unref(bus_); }

// The round trip at the end takes in what the bus says of its own accord at the beginning. A process that ends with
// something unread would have its socket reset.
int BusConnection::awaitGreeting(MonotonicTime deadline) {
  int result;
  while ((result = sd_bus_is_ready(bus_)) == 0) {
    result = sd_bus_process(bus_, nullptr);
    if (result < 0) return -result;
    if (result > 0) continue;
    if (monotonicNow() >= deadline) return ETIMEDOUT;
    result = sd_bus_wait(bus_, microsecondsUntil(deadline));
    if (result < 0 && result != -EINTR) return -result;
  }
  if (result < 0) return -result;
  if (const int error = roundTrip(deadline)) return error;
  while ((result = sd_bus_process(bus_, nullptr)) > 0) {
  }
  return result < 0 ? -result : 0;
}

int BusConnection::send(sd_bus_message* message, MonotonicTime deadline) {
  const int result = sd_bus_send(bus_, message, nullptr);
  if (result < 0) return -result;
  std::uint64_t queued = 0;
  const int asked = sd_bus_get_n_queued_write(bus_, &queued);
  if (asked < 0) return -asked;
  // What the socket did not take is pushed out by a call, which unlike sd_bus_flush has a time-out.
  return queued == 0 ? 0 : roundTrip(deadline);
}

int BusConnection::roundTrip(MonotonicTime deadline) {
  sd_bus_message* made = nullptr;
  int result = sd_bus_message_new_method_call(bus_, &made, kBusName, kBusPath, "org.freedesktop.DBus.Peer", "Ping");
  if (result < 0) return -result;
  const BusMessage call(made);
  BusError error;
  result = sd_bus_call(bus_, call.get(), microsecondsUntil(deadline), error.get(), nullptr);
  return result >= 0 || error.cameFromTheBus() ? 0 : -result;
}

int BusConnection::addMatch(const std::string& rule, MonotonicTime deadline, bool& refused) {
  refused = false;
  sd_bus_message* made = nullptr;
  int result = sd_bus_message_new_method_call(bus_, &made, kBusName, kBusPath, kBusName, "AddMatch");
  if (result < 0) return -result;
  const BusMessage call(made);
  result = sd_bus_message_append_basic(call.get(), 's', rule.c_str());
  if (result < 0) return -result;
  BusError error;
  result = sd_bus_call(bus_, call.get(), microsecondsUntil(deadline), error.get(), nullptr);
  if (result >= 0) return 0;
  refused = error.cameFromTheBus();
  return -result;
}

namespace {

int sendRule(sd_bus* bus, const char* method, const std::string& rule) {
  sd_bus_message* made = nullptr;
  int result = sd_bus_message_new_method_call(bus, &made, kBusName, kBusPath, kBusName, method);
  if (result < 0) return -result;
  const BusMessage call(made);
  result = sd_bus_message_append_basic(call.get(), 's', rule.c_str());
  if (result >= 0) result = sd_bus_message_set_expect_reply(call.get(), 0);
  if (result >= 0) result = sd_bus_send(bus, call.get(), nullptr);
  return result < 0 ? -result : 0;
}

}  // namespace

int BusConnection::addMatches(const std::vector<std::string>& rules) {
  for (const std::string& rule : rules) {
    if (const int error = sendRule(bus_, "AddMatch", rule)) return error;
  }
  return 0;
}

int BusConnection::removeMatch(const std::string& rule) { return sendRule(bus_, "RemoveMatch", rule); }

DescriptorSource::Interest BusConnection::interest() const {
  DescriptorSource::Interest interest;
  const int events = sd_bus_get_events(bus_);
  std::uint64_t timeout = UINT64_MAX;
  // An error is noticed by `process`, at once.
  if (events < 0 || sd_bus_get_timeout(bus_, &timeout) < 0) {
    interest.deadline = 0;
    return interest;
  }
  interest.events = static_cast<std::uint32_t>(events);
  if (timeout < static_cast<std::uint64_t>(kNever / 1000))
    interest.deadline = static_cast<MonotonicTime>(timeout * 1000);
  return interest;
}

BusConnection::Step BusConnection::process(BusMessage& message) {
  sd_bus_message* taken = nullptr;
  const int result = sd_bus_process(bus_, &taken);
  message = BusMessage(taken);
  if (result < 0) return Step::lost;
  if (!message) return result == 0 ? Step::idle : Step::internal;
  if (sd_bus_message_is_signal(taken, "org.freedesktop.DBus.Local", "Disconnected") > 0) return Step::lost;
  // Nobody here can be called.
  if (sd_bus_message_is_method_call(taken, nullptr, nullptr) > 0) {
    sd_bus_reply_method_errorf(taken, SD_BUS_ERROR_UNKNOWN_METHOD, "There is nothing to call here.");
  }
  return Step::message;
}

}  // namespace cf
