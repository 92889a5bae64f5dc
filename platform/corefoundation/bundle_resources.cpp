// Bundles: resources and localised texts.
#include "platform/corefoundation/bundle.h"
#include "platform/corefoundation/bundle_languages.h"
#include "platform/corefoundation/bundle_strings.h"
#include "platform/corefoundation/string.h"
#include "platform/corefoundation/url.h"

#include <vector>

namespace cf {
namespace {

// A table is read once per bundle object; one that is missing or malformed is looked for again at the next call. Null
// when there is none to be had; otherwise it lives as long as the bundle.
CFDictionaryRef stringTable(const BundleContent& content, const std::string& path) {
  const std::lock_guard<std::mutex> lock(content.tablesMutex);
  if (const auto found = content.tables.find(path); found != content.tables.end()) return found->second.get();
  const auto bytes = readBundleFile(path, nullptr);
  if (!bytes) return nullptr;
  Owned<CFDictionaryRef> table = parseStringTable(*bytes);
  if (!table) return nullptr;
  return content.tables.emplace(path, std::move(table)).first->second.get();
}

// The folders to look into, each with a slash at its end: the resources themselves, then those of each language.
std::vector<std::string> resourceFolders(CFBundleRef bundle, const BundleContent& content) {
  const CFStringRef region = CFBundleGetDevelopmentRegion(bundle);
  const std::string resources = content.layout.resourcesFolder + "/";
  std::vector<std::string> folders{resources};
  for (const std::string& language : bundleLanguages(region != nullptr ? utf8View(region) : "")) {
    folders.push_back(resources + language + ".lproj/");
  }
  return folders;
}

std::string fileName(std::string_view name, std::string_view type) {
  if (type.starts_with('.')) type.remove_prefix(1);
  std::string file(name);
  if (!type.empty()) file.append(1, '.').append(type);
  return file;
}

// The text of a key, not retained; null when no table has it.
CFStringRef localizedString(CFBundleRef bundle, CFStringRef key, std::string_view table) {
  const BundleContent* const content = bundleContent(bundle);
  const std::string file = fileName(table, "strings");
  if (content == nullptr || !isPlainName(file)) return nullptr;
  for (const std::string& folder : resourceFolders(bundle, *content)) {
    const CFDictionaryRef strings = stringTable(*content, folder + file);
    const void* const text = strings != nullptr ? CFDictionaryGetValue(strings, key) : nullptr;
    if (isString(text)) return static_cast<CFStringRef>(text);
  }
  return nullptr;
}

CFURLRef copyFolderURL(CFBundleRef bundle, std::string BundleLayout::*folder) {
  const BundleContent* const content = bundleContent(bundle);
  if (content == nullptr || !isDirectory(content->layout.*folder)) return nullptr;
  return createFileURL(content->layout.*folder, true);
}

std::string_view viewOrEmpty(CFStringRef text) { return isString(text) ? utf8View(text) : std::string_view(); }

}  // namespace
}  // namespace cf

using namespace cf;

CFURLRef CFBundleCopyResourcesDirectoryURL(CFBundleRef bundle) {
  return copyFolderURL(bundle, &BundleLayout::resourcesFolder);
}

CFURLRef CFBundleCopyPrivateFrameworksURL(CFBundleRef bundle) {
  return copyFolderURL(bundle, &BundleLayout::frameworksFolder);
}

CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef name, CFStringRef type, CFStringRef subdirectory) {
  const BundleContent* const content = bundleContent(bundle);
  if (content == nullptr || !isString(name)) return nullptr;
  std::string resource = fileName(utf8View(name), viewOrEmpty(type));
  if (const std::string_view folder = withoutTrailingSlashes(viewOrEmpty(subdirectory)); !folder.empty()) {
    resource.insert(0, std::string(folder) + "/");
  }
  if (!leadsDown(resource)) return nullptr;
  for (const std::string& folder : resourceFolders(bundle, *content)) {
    const std::string path = folder + resource;
    if (pathExists(path)) return createFileURL(path, isDirectory(path));
  }
  return nullptr;
}

CFStringRef CFBundleCopyLocalizedString(CFBundleRef bundle, CFStringRef key, CFStringRef value, CFStringRef table) {
  const std::string_view tableName = viewOrEmpty(table);
  CFStringRef text = nullptr;
  if (isString(key)) text = localizedString(bundle, key, tableName.empty() ? "Localizable" : tableName);
  if (text == nullptr && isString(value) && (!utf8View(value).empty() || !isString(key))) text = value;
  if (text == nullptr && isString(key)) text = key;
  return text != nullptr ? CFStringCreateCopy(kCFAllocatorDefault, text) : createString("");
}
