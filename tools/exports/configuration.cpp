#include "tools/exports/configuration.h"

#include <charconv>
#include <functional>
#include <map>
#include <set>

#include "tools/exports/host.h"
#include "tools/exports/options.h"
#include "tools/exports/path_text.h"

namespace exports {
namespace {

std::string_view trimmed(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t");
  if (start == std::string_view::npos) return {};
  return text.substr(start, text.find_last_not_of(" \t") - start + 1);
}

std::string quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

void addClient(Configuration& configuration, std::string_view value) {
  const std::size_t end = value.find_first_of(" \t");
  const std::string host(value.substr(0, end));
  const std::string_view options = end == std::string_view::npos ? "" : trimmed(value.substr(end));
  const std::string reason = reasonAgainstHost(host);
  if (!reason.empty()) throw ConfigurationError("host " + quoted(octalText(host)) + ": " + reason);
  OptionsResult result = readOptions(options);
  if (!result.reason.empty()) throw ConfigurationError("host " + quoted(host) + ": " + result.reason);
  for (const Client& client : configuration.clients) {
    if (client.host == host) throw ConfigurationError("host " + quoted(host) + " is named twice");
  }
  configuration.clients.push_back({host, std::move(result.options)});
}

std::string pathOf(std::string_view key, std::string_view value) {
  const std::string reason = reasonAgainstPath(value);
  if (!reason.empty()) throw ConfigurationError(std::string(key) + " " + quoted(octalText(value)) + ": " + reason);
  return withoutIdleSlashes(value);
}

void setServer(Configuration& configuration, std::string_view value) {
  if (value != "kernel" && value != "ganesha") throw ConfigurationError("server is kernel or ganesha");
  configuration.server = value == "kernel" ? Server::kernel : Server::ganesha;
}

void setPort(Configuration& configuration, std::string_view value) {
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), configuration.ganeshaPort);
  if (error != std::errc() || end != value.data() + value.size() || configuration.ganeshaPort == 0) {
    throw ConfigurationError("ganesha-port is a number from 1 to 65535");
  }
}

using Setter = std::function<void(Configuration&, std::string_view)>;

const std::map<std::string_view, Setter>& setters() {
  static const std::map<std::string_view, Setter> kSetters = {
      {"host", addClient},
      {"folder", [](Configuration& to, std::string_view value) { to.folders.push_back(pathOf("folder", value)); }},
      {"exports", [](Configuration& to, std::string_view value) { to.exportsFile = pathOf("exports", value); }},
      {"server", setServer},
      {"ganesha-port", setPort},
      {"ganesha-pid-file",
       [](Configuration& to, std::string_view value) { to.ganeshaPidFile = pathOf("ganesha-pid-file", value); }}};
  return kSetters;
}

void readLine(Configuration& configuration, std::set<std::string_view>& given, std::string_view line) {
  if (line.find_first_of(std::string_view("\0\r", 2)) != std::string_view::npos) {
    throw ConfigurationError("the line holds a NUL or a carriage return");
  }
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos) throw ConfigurationError("the line is not KEY = VALUE");
  const std::string_view key = trimmed(line.substr(0, equals));
  const auto setter = setters().find(key);
  if (setter == setters().end()) throw ConfigurationError("the key " + quoted(octalText(key)) + " is unknown");
  if (!given.insert(setter->first).second && key != "host" && key != "folder") {
    throw ConfigurationError(std::string(key) + " is set twice");
  }
  const std::string_view value = trimmed(line.substr(equals + 1));
  if (value.empty()) throw ConfigurationError(std::string(key) + " has no value");
  setter->second(configuration, value);
}

}  // namespace

Configuration readConfiguration(std::string_view text) {
  Configuration configuration;
  std::set<std::string_view> given;
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t end = text.find('\n');
    const std::string_view line = trimmed(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.empty() || line.front() == '#') continue;
    try {
      readLine(configuration, given, line);
    } catch (const ConfigurationError& error) {
      throw ConfigurationError("line " + std::to_string(number) + ": " + error.what());
    }
  }
  return configuration;
}

}  // namespace exports
