#include "tools/exports/options.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

namespace exports {
namespace {

// The options of a row exclude one another; the first of it is added where none is given.
struct Choice {
  std::vector<std::string_view> options;
  bool isRequired;
};

const std::array<Choice, 7>& choices() {
  static const std::array<Choice, 7> kChoices = {{{{"ro", "rw"}, true},
                                                  {{"sync", "async"}, true},
                                                  {{"secure", "insecure"}, true},
                                                  {{"root_squash", "no_root_squash", "all_squash"}, true},
                                                  {{"no_subtree_check", "subtree_check"}, true},
                                                  {{"wdelay", "no_wdelay"}, false},
                                                  {{"hide", "nohide", "crossmnt"}, false}}};
  return kChoices;
}

bool isNumber(std::string_view text) {
  return !text.empty() && text.size() <= 9 &&
         std::all_of(text.begin(), text.end(), [](char character) { return character >= '0' && character <= '9'; });
}

bool isFlavourList(std::string_view text) {
  for (;;) {
    const std::size_t colon = text.find(':');
    const std::string_view one = text.substr(0, colon);
    if (one != "sys" && one != "krb5" && one != "krb5i" && one != "krb5p") return false;
    if (colon == std::string_view::npos) return true;
    text.remove_prefix(colon + 1);
  }
}

bool isSetting(std::string_view option) {
  if (option == kIdentifierOfPath) return true;
  const std::size_t equals = option.find('=');
  if (equals == std::string_view::npos) return false;
  const std::string_view name = option.substr(0, equals);
  const std::string_view value = option.substr(equals + 1);
  if (name == "anonuid" || name == "anongid") return isNumber(value);
  return name == "sec" && isFlavourList(value);
}

bool isKnown(std::string_view option) {
  return isSetting(option) || std::any_of(choices().begin(), choices().end(), [option](const Choice& choice) {
           return std::find(choice.options.begin(), choice.options.end(), option) != choice.options.end();
         });
}

// Two settings of one name, or two options of one choice.
bool contradict(std::string_view left, std::string_view right) {
  const std::size_t equals = left.find('=');
  if (equals != std::string_view::npos) return left.substr(0, equals + 1) == right.substr(0, equals + 1);
  return std::any_of(choices().begin(), choices().end(), [&](const Choice& choice) {
    const auto has = [&choice](std::string_view option) {
      return std::find(choice.options.begin(), choice.options.end(), option) != choice.options.end();
    };
    return has(left) && has(right);
  });
}

std::uint64_t hashOf(std::string_view text, std::uint64_t start) {
  std::uint64_t hash = start;
  for (const char character : text) hash = (hash ^ static_cast<std::uint8_t>(character)) * 1099511628211U;
  return hash;
}

}  // namespace

OptionsResult readOptions(std::string_view text) {
  OptionsResult result;
  while (!text.empty()) {
    const std::size_t comma = text.find(',');
    const std::string option(text.substr(0, comma));
    text.remove_prefix(comma == std::string_view::npos ? text.size() : comma + 1);
    if (!isKnown(option)) return {{}, "the option \"" + option + "\" is not among those that are taken"};
    if (hasOption(result.options, option)) continue;
    for (const std::string& former : result.options) {
      if (contradict(former, option)) {
        std::string problem = "the options ";
        problem.append(former).append(" and ").append(option).append(" exclude each other");
        return {{}, problem};
      }
    }
    result.options.push_back(option);
  }
  for (const Choice& choice : choices()) {
    const bool isGiven = std::any_of(choice.options.begin(), choice.options.end(),
                                     [&result](std::string_view option) { return hasOption(result.options, option); });
    if (choice.isRequired && !isGiven) result.options.emplace_back(choice.options.front());
  }
  return result;
}

std::string identifierOption(std::string_view path) {
  char text[64];
  const std::uint64_t high = hashOf(path, 14695981039346656037U);
  const std::uint64_t low = hashOf(path, high);
  std::snprintf(text, sizeof text, "fsid=%08x-%04x-%04x-%04x-%012llx", static_cast<unsigned>(high >> 32U),
                static_cast<unsigned>((high >> 16U) & 0xffffU), static_cast<unsigned>(high & 0xffffU),
                static_cast<unsigned>(low >> 48U), static_cast<unsigned long long>(low & 0xffffffffffffU));
  return text;
}

bool hasOption(const std::vector<std::string>& options, std::string_view option) {
  return std::find(options.begin(), options.end(), option) != options.end();
}

std::string optionsText(const std::vector<std::string>& options, std::string_view path) {
  std::string text;
  for (const std::string& option : options) {
    if (!text.empty()) text += ',';
    text += option == kIdentifierOfPath ? identifierOption(path) : option;
  }
  return text;
}

}  // namespace exports
