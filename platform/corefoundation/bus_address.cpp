#include "platform/corefoundation/bus_address.h"

#include "platform/corefoundation/bus_private.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace cf {
namespace {

// "disabled:" and "autolaunch:" name no bus that could be connected to.
bool namesBus(const std::string& address) {
  return address.find('=') != std::string::npos && address.rfind("autolaunch:", 0) != 0 &&
         address.rfind("disabled:", 0) != 0;
}

std::string environmentValue(const char* name) {
  const char* const value = ::secure_getenv(name);
  return value == nullptr ? "" : value;
}

std::string chosenFolder() {
  const std::string folder = environmentValue("TOVAN_BUS_FOLDER");
  return folder.rfind('/', 0) == 0 ? folder : "";
}

std::optional<std::string> userBusAddress() {
  const std::string path = "/run/user/" + std::to_string(::geteuid()) + "/bus";
  struct stat status;
  if (::lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode) || status.st_uid != ::geteuid()) return {};
  return unixBusAddress(path);
}

std::optional<std::string> onDemandBusAddress(MonotonicTime deadline, std::string& failure) {
  const std::string chosen = chosenFolder();
  const std::string folder = chosen.empty() ? "/tmp/tovan-bus-" + std::to_string(::geteuid()) : chosen;
  std::optional<std::string> socket = startPrivateBus(folder, deadline, failure);
  if (!socket) return {};
  return unixBusAddress(*socket);
}

}  // namespace

std::optional<std::string> busAddress(BusPlace place, MonotonicTime deadline, std::string& failure) {
  switch (place) {
    case BusPlace::session: {
      std::string address = environmentValue("DBUS_SESSION_BUS_ADDRESS");
      if (!namesBus(address)) return {};
      return address;
    }
    case BusPlace::user:
      if (!chosenFolder().empty()) return {};
      return userBusAddress();
    case BusPlace::onDemand:
      return onDemandBusAddress(deadline, failure);
  }
  return {};
}

std::string unixBusAddress(const std::string& path) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string address = "unix:path=";
  for (const char byte : path) {
    const bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
                       byte == '-' || byte == '_' || byte == '/' || byte == '.';
    if (plain) {
      address += byte;
    } else {
      address += '%';
      address += kDigits[static_cast<unsigned char>(byte) >> 4];
      address += kDigits[static_cast<unsigned char>(byte) & 15];
    }
  }
  return address;
}

}  // namespace cf
