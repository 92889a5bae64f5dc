#include "platform/system/host.h"

#include "platform/system/small_file.h"

#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <sstream>
#include <string_view>

namespace platform {
namespace {

constexpr std::size_t kHostsFileLimit = std::size_t{1024} * 1024;

std::string hostName() {
  char name[HOST_NAME_MAX + 1] = "";
  if (::gethostname(name, sizeof name) != 0) return {};
  name[HOST_NAME_MAX] = '\0';
  return name;
}

void addOnce(std::vector<std::string>& list, const std::string& item) {
  if (!item.empty() && std::find(list.begin(), list.end(), item) == list.end()) list.push_back(item);
}

// A value as a shell reads it, up to the first unquoted blank.
std::string unquoted(std::string_view text) {
  std::string value;
  char quote = '\0';
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char character = text[i];
    if (character == '\\' && quote != '\'' && i + 1 < text.size()) {
      value += text[++i];
    } else if (character == quote) {
      quote = '\0';
    } else if (quote == '\0' && (character == '"' || character == '\'')) {
      quote = character;
    } else if (quote == '\0' && (character == ' ' || character == '\t' || character == '\r')) {
      break;
    } else {
      value += character;
    }
  }
  return value;
}

// One address of an interface, with what orders it.
struct Address {
  int family;
  bool isLoopback;
  std::string text;
  bool comesBefore(const Address& other) const noexcept {
    if (family != other.family) return family == AF_INET;
    return !isLoopback && other.isLoopback;
  }
};

std::string numericAddress(const sockaddr* address) {
  const socklen_t size = address->sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
  char text[NI_MAXHOST];
  return ::getnameinfo(address, size, text, sizeof text, nullptr, 0, NI_NUMERICHOST) == 0 ? text : "";
}

}  // namespace

namespace internal {

std::string machineInfoValue(const std::string& content, const std::string& key) {
  std::string value;
  std::istringstream lines(content);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t start = line.find_first_not_of(" \t");
    if (start == std::string::npos || line.compare(start, key.size(), key) != 0) continue;
    if (const std::size_t equals = start + key.size(); equals < line.size() && line[equals] == '=') {
      value = unquoted(std::string_view(line).substr(equals + 1));
    }
  }
  return value;
}

std::vector<std::string> hostsFileNames(const std::string& content, const std::string& name) {
  std::vector<std::string> names;
  std::istringstream lines(content);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line.substr(0, line.find('#')));
    std::string address;
    words >> address;
    std::vector<std::string> onLine;
    for (std::string word; words >> word;) onLine.push_back(word);
    if (std::find(onLine.begin(), onLine.end(), name) == onLine.end()) continue;
    for (const std::string& other : onLine) {
      if (other != name) addOnce(names, other);
    }
  }
  return names;
}

}  // namespace internal

std::string machineName() {
  if (const auto content = readSmallFile(AT_FDCWD, "/etc/machine-info", kHostsFileLimit)) {
    if (std::string name = internal::machineInfoValue(*content, "PRETTY_HOSTNAME"); !name.empty()) return name;
  }
  return hostName();
}

std::vector<std::string> hostNames() {
  std::vector<std::string> names;
  const std::string name = hostName();
  addOnce(names, name);
  if (const auto content = readSmallFile(AT_FDCWD, "/etc/hosts", kHostsFileLimit); content && !name.empty()) {
    for (const std::string& other : internal::hostsFileNames(*content, name)) addOnce(names, other);
  }
  addOnce(names, "localhost");
  return names;
}

std::vector<std::string> hostAddresses() {
  ifaddrs* first = nullptr;
  if (::getifaddrs(&first) != 0) return {};
  const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> list(first, &::freeifaddrs);
  std::vector<Address> found;
  for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || (entry->ifa_flags & IFF_UP) == 0) continue;
    const int family = entry->ifa_addr->sa_family;
    if (family != AF_INET && family != AF_INET6) continue;
    found.push_back({family, (entry->ifa_flags & IFF_LOOPBACK) != 0, numericAddress(entry->ifa_addr)});
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const Address& left, const Address& right) { return left.comesBefore(right); });
  std::vector<std::string> addresses;
  for (const Address& address : found) addOnce(addresses, address.text);
  return addresses;
}

}  // namespace platform
