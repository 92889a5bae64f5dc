#include "tools/exports/linux_exports.h"

#include <algorithm>

#include "tools/exports/options.h"
#include "tools/exports/path_text.h"

namespace exports {
namespace {

std::vector<std::string> parted(std::string_view text) {
  std::vector<std::string> parts;
  while (!text.empty()) {
    const std::size_t comma = text.find(',');
    parts.emplace_back(text.substr(0, comma));
    text.remove_prefix(comma == std::string_view::npos ? text.size() : comma + 1);
  }
  return parts;
}

bool hasMeant(const ServedExport& served, const std::vector<std::string>& options) {
  if (hasOption(served.options, hasOption(options, "ro") ? "rw" : "ro")) return false;
  return std::all_of(options.begin(), options.end(), [&](const std::string& option) {
    return hasOption(served.options, option == kIdentifierOfPath ? identifierOption(served.path) : option);
  });
}

}  // namespace

std::string reasonAgainstLinuxPath(std::string_view path) {
  for (std::size_t at = path.find('\\'); at != std::string_view::npos; at = path.find('\\', at + 1)) {
    if (at + 1 < path.size() && path[at + 1] >= '0' && path[at + 1] <= '7') {
      return "a backslash before a digit in a path would be taken for another character by exportfs";
    }
  }
  return "";
}

std::string linuxExports(const std::vector<std::string>& folders, const std::vector<Client>& clients) {
  std::string text = "# Written by tovan-exports, which replaces it: do not edit.\n";
  if (clients.empty()) return text;
  for (const std::string& folder : folders) {
    if (!reasonAgainstLinuxPath(folder).empty()) continue;
    text += octalText(folder);
    for (const Client& client : clients) {
      text.append(" ").append(client.host).append("(").append(optionsText(client.options, folder)).append(")");
    }
    text += '\n';
  }
  return text;
}

std::set<std::string> unservableFolders(std::string_view errors) {
  constexpr std::string_view kSpeaker = "exportfs: ";
  std::set<std::string> folders;
  while (!errors.empty()) {
    const std::size_t end = errors.find('\n');
    std::string_view line = errors.substr(0, end);
    errors.remove_prefix(end == std::string_view::npos ? errors.size() : end + 1);
    if (line.substr(0, kSpeaker.size()) != kSpeaker) continue;
    line.remove_prefix(kSpeaker.size());
    for (const std::string_view complaint : {" does not support NFS export", " requires fsid= for NFS export"}) {
      if (line.size() > complaint.size() && line.substr(line.size() - complaint.size()) == complaint) {
        folders.emplace(line.substr(0, line.size() - complaint.size()));
      }
    }
  }
  return folders;
}

std::vector<ServedExport> readServed(std::string_view etab) {
  std::vector<ServedExport> served;
  while (!etab.empty()) {
    const std::size_t end = etab.find('\n');
    const std::string_view line = etab.substr(0, end);
    etab.remove_prefix(end == std::string_view::npos ? etab.size() : end + 1);
    const std::size_t tab = line.find('\t');
    if (tab == std::string_view::npos || line.back() != ')') continue;
    const std::size_t open = line.find('(', tab);
    if (open == std::string_view::npos) continue;
    served.push_back({bytesOfOctalText(line.substr(0, tab)), std::string(line.substr(tab + 1, open - tab - 1)),
                      parted(line.substr(open + 1, line.size() - open - 2))});
  }
  std::sort(served.begin(), served.end(), [](const auto& left, const auto& right) { return left.path < right.path; });
  return served;
}

bool isServed(const std::vector<ServedExport>& served, std::string_view path, std::string_view host,
              const std::vector<std::string>& options) {
  auto one = std::lower_bound(served.begin(), served.end(), path,
                              [](const ServedExport& entry, std::string_view sought) { return entry.path < sought; });
  for (; one != served.end() && one->path == path; ++one) {
    if (one->host == host && hasMeant(*one, options)) return true;
  }
  return false;
}

}  // namespace exports
