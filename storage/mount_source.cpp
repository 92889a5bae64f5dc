#include "storage/mount_source.h"

#include <plinth/exception.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>

#include "storage/storage_names.h"

namespace tovan {

using plinth::CParamException;
using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;
using plinth::CURLRef;

namespace {

constexpr char kOptions[] = "soft,intr,locallocks";
constexpr int kNoOwnPort = -1;
constexpr int kLastPort = 65535;

std::string textOf(const CStringRef& text) { return text ? text->str() : std::string(); }

// What no host name holds and a mount command could take for a list of hosts, the tag of a volume or a path.
bool isNoHostCharacter(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte <= ' ' || byte == 0x7F || std::string_view(",=/[]\"'\\").find(character) != std::string_view::npos;
}

bool isHost(const std::string& host) {
  return !host.empty() && host.front() != '-' && std::none_of(host.begin(), host.end(), isNoHostCharacter);
}

bool isPath(const std::string& path) { return path.starts_with('/') && path.find('\0') == std::string::npos; }

// Nothing for a text that is no integer, or none that a port may be given as.
std::optional<int> portIn(const std::string& text) {
  int port = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, port);
  if (error != std::errc() || stop != end || port < kNoOwnPort || port > kLastPort) return std::nullopt;
  return port;
}

// The user's name and password are no part of it.
[[noreturn]] void refuse(const MountSource& source, const std::string& reason) {
  const std::string where = source.host + ":" + source.path;
  throw CParamException("CNFSSharedStorage::_subscribe: [%@] %@",
                        CString::nullToEmptyString(CSTR(where))->getStringRef(), CSTR(reason)->getStringRef());
}

std::string portOptions(const MountSource& source, const CURLRef& url) {
  const std::string value = textOf(url->getParameterValue(CSTR(kPortParameter)));
  const std::optional<int> port = value.empty() ? 0 : portIn(value);
  if (!port) refuse(source, "has a bad port: " + value);
  if (*port == 0) return "";
  const std::string number = std::to_string(*port);
  return "port=" + number + ",mountport=" + number + ",";
}

}  // namespace

MountSource mountSourceOf(const CURLRef& url) {
  if (url.isNull()) throw plinth::CNullPointerException("Error: url is null!");
  MountSource source{textOf(url->getHostName()), textOf(url->getFileSystemPath()), ""};
  if (!isHost(source.host)) refuse(source, "names no host");
  // Only an address of version 6 holds colons.
  if (source.host.find(':') != std::string::npos) source.host = "[" + source.host + "]";
  if (!isPath(source.path)) refuse(source, "names no folder of the host");
  source.options = portOptions(source, url) + kOptions;
  return source;
}

std::string mountPointArgument(const std::string& mountPoint) {
  return mountPoint.starts_with('-') ? "./" + mountPoint : mountPoint;
}

}  // namespace tovan
