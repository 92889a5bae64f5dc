#include "tools/exports/host.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <vector>

namespace exports {
namespace {

constexpr int kLeastPrefix4 = 8;
constexpr int kLeastPrefix6 = 16;
constexpr const char* kEveryone = "that is the whole world, to which nothing is exported";

bool isLetter(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}
bool isDigit(char character) { return character >= '0' && character <= '9'; }

std::string reasonAgainstLabel(std::string_view label) {
  if (label.empty() || label.size() > 63) return "a label of the name is empty or longer than 63 characters";
  const bool plain = std::all_of(label.begin(), label.end(), [](char character) {
    return isLetter(character) || isDigit(character) || character == '-' || character == '_';
  });
  if (!plain) return "a host name has letters, digits, hyphens and dots only";
  if (label.front() == '-' || label.back() == '-') return "a label of the name begins or ends with a hyphen";
  return "";
}

// A name whose last label begins with a letter can be no number that the resolver takes for an address.
std::string reasonAgainstName(std::string_view name) {
  if (name.size() > 253) return "the name is longer than 253 characters";
  for (std::size_t at = 0;;) {
    const std::size_t dot = name.find('.', at);
    const std::string_view label = name.substr(at, dot == std::string_view::npos ? dot : dot - at);
    std::string reason = reasonAgainstLabel(label);
    if (!reason.empty()) return reason;
    if (dot == std::string_view::npos) {
      return isLetter(label.front()) ? "" : "it is neither a host name nor a whole address";
    }
    at = dot + 1;
  }
}

struct Address {
  int family = AF_UNSPEC;
  std::array<std::uint8_t, 16> bytes{};
};

Address addressOf(const std::string& text) {
  Address address;
  if (::inet_pton(AF_INET, text.c_str(), address.bytes.data()) == 1) {
    address.family = AF_INET;
  } else if (::inet_pton(AF_INET6, text.c_str(), address.bytes.data()) == 1) {
    address.family = AF_INET6;
  }
  return address;
}

bool isZero(const Address& address, std::size_t count) {
  return std::all_of(address.bytes.begin(), address.bytes.begin() + static_cast<std::ptrdiff_t>(count),
                     [](std::uint8_t byte) { return byte == 0; });
}

std::string reasonAgainstNetwork(const Address& address, std::string_view prefix) {
  int length = -1;
  const auto [end, error] = std::from_chars(prefix.data(), prefix.data() + prefix.size(), length);
  const int longest = address.family == AF_INET ? 32 : 128;
  if (error != std::errc() || end != prefix.data() + prefix.size() || length < 0 || length > longest) {
    return "the prefix of the network is a number up to " + std::to_string(longest);
  }
  if (length == 0) return kEveryone;
  const int least = address.family == AF_INET ? kLeastPrefix4 : kLeastPrefix6;
  if (length < least) {
    return "the network is too large: its prefix must be at least " + std::to_string(least);
  }
  return "";
}

}  // namespace

std::string reasonAgainstHost(std::string_view host) {
  if (host.empty()) return "no host is named";
  if (host.find_first_not_of("*?.") == std::string_view::npos) return kEveryone;
  if (host.front() == '-') return "a host does not begin with a hyphen";
  if (host.front() == '@') return "netgroups are refused, for they may hold everyone; name the hosts";
  if (host.substr(0, 2) == "*.") {
    const std::string_view domain = host.substr(2);
    if (domain.find('.') == std::string_view::npos) return "the domain of a pattern has at least two labels";
    return reasonAgainstName(domain);
  }
  const std::size_t slash = host.find('/');
  const Address address = addressOf(std::string(host.substr(0, slash)));
  if (address.family == AF_UNSPEC) {
    if (slash != std::string_view::npos) return "before the / stands no address";
    return reasonAgainstName(host);
  }
  // The first ten bytes are zero in the unspecified address and where IPv6 holds all of IPv4, but for ::1.
  const std::size_t leading = address.family == AF_INET ? 1 : 10;
  if (isZero(address, leading) && !(address.family == AF_INET6 && host == "::1")) {
    return "the address stands for no host of its own";
  }
  if (slash == std::string_view::npos) return "";
  return reasonAgainstNetwork(address, host.substr(slash + 1));
}

}  // namespace exports
