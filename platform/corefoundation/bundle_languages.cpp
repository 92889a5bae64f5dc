#include "platform/corefoundation/bundle_languages.h"

#include "platform/corefoundation/bundle_layout.h"

#include <algorithm>
#include <cstdlib>

namespace cf {
namespace {

std::string_view environment(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::string_view messageLocale() {
  for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (const std::string_view value = environment(name); !value.empty()) return value;
  }
  return {};
}

void add(std::vector<std::string>& languages, std::string_view name) {
  if (!isPlainName(name) || std::find(languages.begin(), languages.end(), name) != languages.end()) return;
  languages.emplace_back(name);
}

void addLocale(std::vector<std::string>& languages, std::string_view locale) {
  locale = locale.substr(0, locale.find_first_of(".@"));
  if (locale == "C" || locale == "POSIX") return;
  add(languages, locale);
  const std::size_t underscore = locale.find('_');
  if (underscore == std::string_view::npos) return;
  std::string hyphenated(locale);
  hyphenated[underscore] = '-';
  add(languages, hyphenated);
  add(languages, locale.substr(0, underscore));
}

}  // namespace

std::vector<std::string> bundleLanguages(std::string_view developmentRegion) {
  std::vector<std::string> languages;
  const std::string_view locale = messageLocale();
  const std::string_view plain = locale.substr(0, locale.find('.'));
  if (!plain.empty() && plain != "C" && plain != "POSIX") {
    std::string_view list = environment("LANGUAGE");
    while (!list.empty()) {
      const std::size_t colon = list.find(':');
      addLocale(languages, list.substr(0, colon));
      list.remove_prefix(colon == std::string_view::npos ? list.size() : colon + 1);
    }
    addLocale(languages, locale);
  }
  add(languages, developmentRegion);
  add(languages, "en");
  add(languages, "Base");
  return languages;
}

}  // namespace cf
