#include "tools/mount/options.h"

#include <charconv>
#include <set>
#include <string_view>

#include "tools/mount/translation.h"

namespace host_mount {
namespace {

// 0 for -1, as a server without a port of its own says.
std::uint16_t portOf(const std::string& option, std::string_view digits) {
  if (digits == "-1") return 0;
  std::uint16_t port = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, port);
  if (error != std::errc() || stop != end || port == 0) {
    throw Refusal("the option " + quoted(option) + " is no port between 1 and 65535");
  }
  return port;
}

void apply(const std::string& option, const std::string& name, Options& options) {
  const bool hasValue = name.size() != option.size();
  const std::string_view value = hasValue ? std::string_view(option).substr(name.size() + 1) : std::string_view();
  if (hasValue && name == "port") {
    options.port = portOf(option, value);
  } else if (hasValue && name == "mountport") {
    options.mountPort = portOf(option, value);
  } else if (option == "soft") {
    options.isSoft = true;
  } else if (option == "locallocks") {
    options.locksLocally = true;
  } else if (option != "intr") {  // which has no meaning on Linux: a waiting process can always be killed
    throw Refusal("unknown option " + quoted(option));
  }
}

}  // namespace

Options parseOptions(const std::string& text) {
  Options options;
  std::set<std::string> seen;
  for (std::size_t begin = 0, end = 0; end != std::string::npos; begin = end + 1) {
    end = text.find(',', begin);
    const std::string option = text.substr(begin, end == std::string::npos ? end : end - begin);
    const std::string name = option.substr(0, option.find('='));
    apply(option, name, options);
    if (!seen.insert(name).second) throw Refusal("the option " + quoted(name) + " comes twice");
  }
  if ((options.port == 0) != (options.mountPort == 0)) throw Refusal("\"port\" and \"mountport\" go together");
  return options;
}

std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte >= 0x20 && byte != 0x7F) {
      result += character;
    } else {
      result += {'\\', static_cast<char>('0' + (byte >> 6)), static_cast<char>('0' + (byte >> 3 & 7)),
                 static_cast<char>('0' + (byte & 7))};
    }
  }
  return result + "\"";
}

}  // namespace host_mount
