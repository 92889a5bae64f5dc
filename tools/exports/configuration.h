// configuration.h: what the administrator set: docs/exports.md describes the file.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace exports {

struct Client {
  std::string host;
  std::vector<std::string> options;  // complete
};

enum class Server { kernel, ganesha };

struct Configuration {
  std::vector<Client> clients;       // none at all unless the file names some
  std::vector<std::string> folders;  // where exports may lie; none: what belongs to the owner of the library's file
  std::string exportsFile;           // empty when the file does not say
  Server server = Server::kernel;
  std::uint16_t ganeshaPort = 2049;
  std::string ganeshaPidFile = "/run/ganesha.pid";
};

// "line N: WHY"; the whole configuration is refused then.
class ConfigurationError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads lines of KEY = VALUE; the value goes to the end of its line, blanks around it apart. Empty lines and those
// that begin with # are passed over. Throws ConfigurationError.
Configuration readConfiguration(std::string_view text);

}  // namespace exports
