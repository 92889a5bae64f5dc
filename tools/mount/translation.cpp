#include "tools/mount/translation.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "tools/mount/options.h"

namespace host_mount {
namespace {

constexpr std::array<std::string_view, 5> kVersions = {"3", "4", "4.0", "4.1", "4.2"};
// What no host name holds and the host's tools would take for something else: a list of hosts (","), a tag such as
// "LABEL=…", a path.
constexpr std::string_view kNotInHosts = ",=/[]\"'\\ \t\n\r";

struct Source {
  std::string host;  // without brackets
  std::string path;
};

Source sourceOf(const std::string& text) {
  const std::size_t end = text.find(":/");
  if (end == std::string::npos) throw Refusal("the source " + quoted(text) + " is not HOST:/PATH");
  Source source{text.substr(0, end), text.substr(end + 1)};
  if (source.host.size() > 2 && source.host.front() == '[' && source.host.back() == ']') {
    source.host = source.host.substr(1, source.host.size() - 2);
  }
  const std::string& host = source.host;
  if (host.empty() || host.front() == '-' || host.find_first_of(kNotInHosts) != std::string::npos) {
    throw Refusal("the source " + quoted(text) + " begins with no host name");
  }
  return source;
}

bool isIPv6Literal(const std::string& host) { return host.find(':') != std::string::npos; }

std::string sourceText(const Source& source) {
  const std::string host = isIPv6Literal(source.host) ? "[" + source.host + "]" : source.host;
  return host + ":" + source.path;
}

// A relative path gets "./" in front: it could be read as an option, or as the tag of a volume.
std::string folderText(const std::string& folder) {
  if (folder.empty()) throw Refusal("the mount point is empty");
  return folder.front() == '/' ? folder : "./" + folder;
}

std::string hostOptions(const Options& given, const Source& source, const std::string& version) {
  const bool isVersion3 = version == "3";
  std::string text = "vers=" + version;
  if (given.port != 0) {
    text += ",port=" + std::to_string(given.port);
    // Version 4 has no mount protocol, and no transport but TCP.
    if (isVersion3) {
      text += ",mountport=" + std::to_string(given.mountPort);
      // Without a port map nothing tells the transport. "tcp" alone is IPv4.
      text += isIPv6Literal(source.host) ? ",proto=tcp6" : ",proto=tcp";
    }
  }
  if (given.isSoft) text += ",soft";
  // "local_lock=all" means the same, but with it the mount fails where rpc.statd does not run. Version 4 always locks
  // on the server and has no word for it.
  if (given.locksLocally && isVersion3) text += ",nolock";
  // A failed mount is reported at once; the default is to try for two minutes.
  return text + ",retry=0";
}

}  // namespace

Arguments mountArguments(const Arguments& given, const std::string& nfsVersion) {
  const std::string version = nfsVersion.empty() ? "3" : nfsVersion;
  if (std::find(kVersions.begin(), kVersions.end(), version) == kVersions.end()) {
    throw Refusal("the NFS version " + quoted(version) + " is none of 3, 4, 4.0, 4.1, 4.2");
  }
  const bool hasOptions = given.size() == 4 && given[0] == "-o";
  if (!hasOptions && given.size() != 2) throw Refusal("wrong arguments");
  const Options options = hasOptions ? parseOptions(given[1]) : Options();
  const Source source = sourceOf(given[given.size() - 2]);
  return {"-t", "nfs", "-o", hostOptions(options, source, version), "--", sourceText(source), folderText(given.back())};
}

Arguments umountArguments(const Arguments& given) {
  if (given.size() != 2 || given[0] != "-f") throw Refusal("wrong arguments");
  return {"-f", "--", folderText(given[1])};
}

}  // namespace host_mount
