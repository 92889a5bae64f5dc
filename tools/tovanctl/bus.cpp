#include "tools/tovanctl/bus.h"

#include <CoreFoundation/CoreFoundation.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <tovan/notifications.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "tools/tovanctl/process.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {
namespace {

struct Place {
  std::string name;
  std::string address;
};

std::string environmentValue(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

// A value of an address, its %XX made bytes again.
std::string unescaped(const std::string& value) {
  std::string out;
  for (std::size_t at = 0; at < value.size(); ++at) {
    if (value[at] == '%' && at + 2 < value.size()) {
      out += static_cast<char>(std::strtol(value.substr(at + 1, 2).c_str(), nullptr, 16));
      at += 2;
    } else {
      out += value[at];
    }
  }
  return out;
}

std::string escaped(const std::string& path) {
  std::string out;
  for (const char byte : path) {
    const bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
                       (byte != '\0' && std::strchr("-_/.", byte) != nullptr);
    out += plain ? std::string(1, byte) : fmt::format("%{:02x}", static_cast<unsigned char>(byte));
  }
  return out;
}

// The value of "key" in the first of the addresses, "transport:key=value,...;...".
std::string valueInAddress(const std::string& addresses, const std::string& key) {
  const std::string address = addresses.substr(0, addresses.find(';'));
  std::size_t at = address.find(':');
  while (at != std::string::npos) {
    const std::size_t end = address.find(',', at + 1);
    const std::string pair = address.substr(at + 1, end == std::string::npos ? end : end - at - 1);
    if (pair.rfind(key + "=", 0) == 0) return unescaped(pair.substr(key.size() + 1));
    at = end;
  }
  return {};
}

std::vector<Place> places() {
  std::vector<Place> found;
  const std::string session = environmentValue("DBUS_SESSION_BUS_ADDRESS");
  if (session.find('=') != std::string::npos) found.push_back({"session", session});
  const std::string folder = environmentValue("TOVAN_BUS_FOLDER");
  const std::string user = std::to_string(::geteuid());
  if (folder.empty() || folder[0] != '/') {
    struct stat facts {};
    const std::string socket = "/run/user/" + user + "/bus";
    if (::lstat(socket.c_str(), &facts) == 0) found.push_back({"user", "unix:path=" + socket});
    found.push_back({"on demand", "unix:path=/tmp/tovan-bus-" + user + "/bus"});
  } else {
    found.push_back({"on demand", "unix:path=" + escaped(folder) + "/bus"});
  }
  return found;
}

class Socket {
 public:
  Socket() : descriptor_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  int get() const { return descriptor_; }

 private:
  int descriptor_;
};

// Connects to the socket of an address; what went wrong, or empty. Transports other than unix are left to the library.
std::string connectTo(const Socket& socket, const std::string& address) {
  const std::string path = valueInAddress(address, "path");
  const std::string abstract = valueInAddress(address, "abstract");
  const std::string name = path.empty() ? std::string(1, '\0') + abstract : path;
  sockaddr_un target{};
  target.sun_family = AF_UNIX;
  if (path.empty() && abstract.empty()) return "its address names no socket";
  if (name.size() >= sizeof target.sun_path) return "the socket's path is longer than 107 bytes";
  std::memcpy(target.sun_path, name.data(), name.size());
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size() + (path.empty() ? 0 : 1));
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&target), length) != 0) return std::strerror(errno);
  return {};
}

// The first lines of every connection to a bus: a NUL, the way of authentication and the user id in hexadecimal digits
// of its decimal digits, answered by "OK" and the bus's identifier.
std::string sayHello(const Socket& socket) {
  std::string hello("\0AUTH EXTERNAL ", 15);
  for (const char digit : std::to_string(::geteuid()))
    hello += fmt::format("{:02x}", static_cast<unsigned char>(digit));
  hello += "\r\n";
  if (::send(socket.get(), hello.data(), hello.size(), MSG_NOSIGNAL) < 0) return std::strerror(errno);
  pollfd answer{socket.get(), POLLIN, 0};
  if (::poll(&answer, 1, 1000) <= 0) return "it does not answer";
  char line[128];
  const ssize_t count = ::recv(socket.get(), line, sizeof line, 0);
  if (count >= 3 && std::memcmp(line, "OK ", 3) == 0) return {};
  return "it refuses this user";
}

std::string tryPlace(const Place& place) {
  const Socket socket;
  const std::string failure = connectTo(socket, place.address);
  return failure.empty() ? sayHello(socket) : failure;
}

void noteArrival(CFNotificationCenterRef, void* observer, CFStringRef, const void*, CFDictionaryRef) {
  *static_cast<bool*>(observer) = true;
}

}  // namespace

BusState lookAtBus() {
  BusState state;
  for (const Place& place : places()) {
    const std::string failure = tryPlace(place);
    if (failure.empty()) {
      state.reachable = true;
      state.address = place.address;
      state.place = place.name;
      break;
    }
    state.problem += (state.problem.empty() ? "" : "; ") + place.name + ", " + place.address + ": " + failure;
  }
  return state;
}

std::optional<double> roundTrip(double seconds) {
  bool arrived = false;
  const plinth::CSharedCFRef<CFStringRef> object = string("tovanctl." + std::to_string(::getpid()));
  const auto started = std::chrono::steady_clock::now();
  const Deadline deadline = deadlineIn(seconds);
  registerForNotification(&arrived, noteArrival, CFSTR("TovanctlRoundTrip"), object.get());
  sendNotification(CFSTR("TovanctlRoundTrip"), object.get(), nullptr);
  while (!arrived && !isOver(deadline)) CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.1, TRUE);
  unregisterForNotifications(&arrived);
  if (!arrived) return {};
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
}

}  // namespace tovanctl
