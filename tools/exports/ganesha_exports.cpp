#include "tools/exports/ganesha_exports.h"

#include <algorithm>
#include <cstdint>
#include <set>

#include "tools/exports/options.h"

namespace exports {
namespace {

// The number of an export stays the same as long as no other folder of the same hash comes before it: a server that
// reads its configuration again knows the export by it.
unsigned numberFor(std::string_view path, std::set<unsigned>& taken) {
  std::uint32_t hash = 2166136261U;
  for (const char character : path) hash = (hash ^ static_cast<std::uint8_t>(character)) * 16777619U;
  unsigned number = 1 + hash % 65534U;
  while (!taken.insert(number).second) number = number % 65534U + 1;
  return number;
}

std::string squashOf(const std::vector<std::string>& options) {
  if (hasOption(options, "all_squash")) return "All_Squash";
  return hasOption(options, "no_root_squash") ? "No_Root_Squash" : "Root_Squash";
}

// The value of the setting NAME=VALUE, empty when there is none.
std::string settingOf(const std::vector<std::string>& options, std::string_view name) {
  for (const std::string& option : options) {
    if (option.size() > name.size() && option.compare(0, name.size(), name) == 0 && option[name.size()] == '=') {
      return option.substr(name.size() + 1);
    }
  }
  return "";
}

std::string clientBlock(const Client& client) {
  std::string text = "  CLIENT { Clients = " + client.host + ";";
  text += hasOption(client.options, "rw") ? " Access_Type = RW;" : " Access_Type = RO;";
  text.append(" Squash = ").append(squashOf(client.options)).append(";");
  text += hasOption(client.options, "secure") ? " PrivilegedPort = true;" : " PrivilegedPort = false;";
  const std::string user = settingOf(client.options, "anonuid");
  const std::string group = settingOf(client.options, "anongid");
  if (!user.empty()) text.append(" Anonymous_Uid = ").append(user).append(";");
  if (!group.empty()) text.append(" Anonymous_Gid = ").append(group).append(";");
  std::string flavours = settingOf(client.options, "sec");
  std::replace(flavours.begin(), flavours.end(), ':', ',');
  text.append(" SecType = ").append(flavours.empty() ? "sys" : flavours).append(";");
  return text + " Protocols = 4; Transports = TCP; }\n";
}

}  // namespace

std::string reasonAgainstGaneshaPath(std::string_view path) {
  const bool hasForm = std::all_of(path.begin(), path.end(), [](char character) {
    const auto byte = static_cast<std::uint8_t>(character);
    return byte >= 0x20 && byte != 0x7f && character != '"' && character != '\\';
  });
  return hasForm ? "" : "nfs-ganesha has no form for a path with quotes, backslashes or control characters";
}

std::string ganeshaExports(const std::vector<std::string>& folders, const Configuration& configuration) {
  std::string text = "# Written by tovan-exports, which replaces it: do not edit.\n";
  text += "NFS_CORE_PARAM { Protocols = 4; NFS_Port = " + std::to_string(configuration.ganeshaPort) +
          "; Enable_NLM = false; Enable_RQUOTA = false; }\n";
  text += "NFSv4 { Graceless = true; RecoveryBackend = fs; }\n";
  if (configuration.clients.empty()) return text;
  std::set<unsigned> taken;
  std::vector<std::string> sorted = folders;
  std::sort(sorted.begin(), sorted.end());
  for (const std::string& folder : sorted) {
    if (!reasonAgainstGaneshaPath(folder).empty()) continue;
    text.append("EXPORT {\n  Export_Id = ").append(std::to_string(numberFor(folder, taken))).append(";\n");
    text.append("  Path = \"").append(folder).append("\";\n  Pseudo = \"").append(folder).append("\";\n");
    text += "  Access_Type = NONE;\n  Squash = Root_Squash;\n  SecType = sys;\n  Protocols = 4;\n  Transports = TCP;\n";
    for (const Client& client : configuration.clients) text += clientBlock(client);
    text += "  FSAL { Name = VFS; }\n}\n";
  }
  return text;
}

}  // namespace exports
