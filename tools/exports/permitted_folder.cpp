#include "tools/exports/permitted_folder.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "tools/exports/path_text.h"
#include "tools/launchctl/failure.h"

namespace exports {

std::string reasonAgainstFolder(const std::string& path, const std::vector<std::string>& roots, uid_t owner) {
  std::error_code error;
  const std::string place = std::filesystem::canonical(path, error).string();
  if (error) return "the folder cannot be looked at: " + error.message();
  struct stat facts {};
  if (::stat(place.c_str(), &facts) != 0) {
    return "the folder cannot be looked at: " + launchctl::systemReason(errno);
  }
  if (!S_ISDIR(facts.st_mode)) return "it is not a folder";
  if (place == "/") return "it leads to the root of all folders, which is never exported";
  if (roots.empty()) {
    if (owner == 0 || facts.st_uid == owner) return "";
    return "the folder belongs to user " + std::to_string(facts.st_uid) + ", not to the owner of this file (" +
           std::to_string(owner) + ")";
  }
  const bool isInside = std::any_of(roots.begin(), roots.end(), [&place](const std::string& root) {
    std::error_code none;
    const std::string rootPlace = std::filesystem::canonical(root, none).string();
    return !none && liesIn(place, rootPlace);
  });
  return isInside ? "" : "the folder lies in none of the configuration's folders";
}

}  // namespace exports
