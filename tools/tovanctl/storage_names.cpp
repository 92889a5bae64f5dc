#include "tools/tovanctl/storage_names.h"

#include <fmt/format.h>

#include <cctype>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {
namespace {

std::string escapedPath(const std::string& path) {
  std::string out;
  for (const char byte : path) {
    const bool isPlain = std::isalnum(static_cast<unsigned char>(byte)) != 0 || std::strchr("/-._~", byte) != nullptr;
    out += isPlain ? std::string(1, byte) : fmt::format("%{:02X}", static_cast<unsigned char>(byte));
  }
  return out;
}

}  // namespace

std::string storagePath(const std::string& given) {
  if (given.empty()) throw CommandError(kUsage, "the path is empty");
  string(given);  // refuses what is not UTF-8
  if (given.find('\n') != std::string::npos) {
    throw CommandError(kUsage, "the path holds a line feed, which no line of the exports file can");
  }
  std::error_code failed;
  const std::filesystem::path whole = std::filesystem::absolute(given, failed);
  if (failed) throw CommandError(kUsage, given + ": " + failed.message());
  std::string path = whole.lexically_normal().string();
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string storageURL(const std::string& given) {
  string(given);
  if (given.find("://") != std::string::npos) return given;
  const std::size_t colon = given.find(":/");
  if (colon == std::string::npos || colon == 0) {
    throw CommandError(kUsage, "neither HOST:/PATH nor a URL: " + given);
  }
  return "nfs://" + given.substr(0, colon) + escapedPath(given.substr(colon + 1));
}

void checkClientName(const std::string& given) {
  string(given);
  if (given.empty() || given == "_totalRefCount" || given == "_returnedRefTicks") {
    throw CommandError(kUsage, "\"" + given + "\" is no name of a client");
  }
}

}  // namespace tovanctl
