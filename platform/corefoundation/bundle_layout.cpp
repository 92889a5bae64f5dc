#include "platform/corefoundation/bundle_layout.h"

#include "platform/corefoundation/bundle_file.h"
#include "platform/corefoundation/url_syntax.h"

namespace cf {
namespace {

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

bool hasExtension(const std::string& path) { return extensionDot(lastPathComponent(path)) != std::string_view::npos; }

bool hasTopLevelInfo(const std::string& folder) {
  return pathExists(folder + "/Info.plist") || pathExists(folder + "/Resources/Info.plist");
}

BundleLayout contentsLayout(const std::string& path) {
  const std::string contents = path + "/Contents";
  return {contents + "/Info.plist", contents + "/Resources", contents + "/Frameworks", {contents + "/Linux"}};
}

BundleLayout frameworkLayout(const std::string& path) {
  const std::string version = path + "/Versions/Current";
  const std::string resources = version + "/Resources";
  std::string info = resources + "/Info.plist";
  if (!pathExists(info)) info = path + "/Resources/Info.plist";
  return {info, resources, version + "/Frameworks", {version, resources}};
}

BundleLayout flatLayout(const std::string& path) {
  const std::string resources = path + "/Resources";
  const bool hasResources = isDirectory(resources);
  std::string info = path + "/Info.plist";
  if (!pathExists(info) && hasResources) info = resources + "/Info.plist";
  return {info, hasResources ? resources : path, path + "/Frameworks", {path, resources}};
}

}  // namespace

BundleLayout bundleLayout(const std::string& path) {
  const bool isFramework = isDirectory(path + "/Versions/Current");
  if (pathExists(path + "/Contents/Info.plist")) return contentsLayout(path);
  if (isFramework) return frameworkLayout(path);
  return isDirectory(path + "/Contents") ? contentsLayout(path) : flatLayout(path);
}

std::optional<std::string> enclosingBundle(const std::string& file) {
  const std::string own = folderOf(file);
  std::string below;  // the name, in `folder`, of what leads to the file
  for (std::string folder = own; folder != "/"; folder = folderOf(folder)) {
    const std::string_view name = lastPathComponent(folder);
    const std::string parent = folderOf(folder);
    if (lastPathComponent(parent) == "Versions" && folderOf(parent).ends_with(".framework")) return folderOf(parent);
    // These carry an Info.plist without being bundles: they belong to the one around them.
    if (name != "Contents" && name != "Resources") {
      if (below == "Contents" && pathExists(folder + "/Contents/Info.plist")) return folder;
      const bool isNear = folder == own || folder + "/Resources" == own;
      if ((isNear || hasExtension(folder)) && hasTopLevelInfo(folder)) return folder;
    }
    below = name;
  }
  return std::nullopt;
}

std::string bundleName(const std::string& path) {
  const std::string_view last = lastPathComponent(path);
  return std::string(last.substr(0, extensionDot(last)));
}

bool isPlainName(std::string_view name) noexcept {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

bool leadsDown(std::string_view path) noexcept {
  for (;;) {
    const std::size_t slash = path.find('/');
    if (!isPlainName(path.substr(0, slash))) return false;
    if (slash == std::string_view::npos) return true;
    path.remove_prefix(slash + 1);
  }
}

}  // namespace cf
