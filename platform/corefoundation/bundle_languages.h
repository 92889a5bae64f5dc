// bundle_languages.h: the languages that localised resources are looked for in.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cf {

// Names of ".lproj" folders without that extension, the best first, each once: what the user wants ($LANGUAGE, a list
// with colons, which counts only beside a locale other than "C"; $LC_ALL, $LC_MESSAGES, $LANG), each "de_AT.UTF-8" as
// "de_AT", "de-AT" and "de"; then the development region, "en" and "Base". Names that could not be a folder's are
// skipped.
std::vector<std::string> bundleLanguages(std::string_view developmentRegion);

}  // namespace cf
