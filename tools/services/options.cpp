#include "tools/services/options.h"

#include <charconv>
#include <string_view>

namespace service {
namespace {

struct Option {
  std::string_view name;
  bool hasValue;
  void (*apply)(Options& options, const std::string& value);
};

void setAdvertising(Options& options, const std::string& value) {
  if (value != "dn" && value != "mc" && value != "rv") {
    throw UsageError("-adv takes dn, mc or rv, not \"" + value + "\"");
  }
  options.advertising = value;
}

void setInstance(Options& options, const std::string& value) {
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), options.instance);
  const bool isNumber = error == std::errc() && end == value.data() + value.size();
  if (!isNumber || options.instance < 0) throw UsageError("-idx takes a number from 0 on, not \"" + value + "\"");
}

constexpr Option kOptions[] = {
    {"-d", false, [](Options& options, const std::string&) { options.detached = true; }},
    {"-l", false, [](Options& options, const std::string&) { options.advertisesLocally = true; }},
    {"-v", false, [](Options& options, const std::string&) { options.logs = true; }},
    {"-adv", true, setAdvertising},
    {"-idx", true, setInstance},
    {"-name", true, [](Options& options, const std::string& value) { options.name = value; }},
    {"-id", true, [](Options& options, const std::string& value) { options.identifier = value; }},
    {"-ak", true, [](Options& options, const std::string& value) { options.accessKey = value; }},
    {"-ck", true, [](Options& options, const std::string& value) { options.captureKey = value; }},
    {"-pu", false, [](Options& options, const std::string&) { options.perUser = true; }},
};

const Option& optionOf(const std::string& word) {
  for (const Option& option : kOptions) {
    if (option.name == word) return option;
  }
  throw UsageError("unknown option \"" + word + "\"");
}

}  // namespace

Options parseOptions(int argc, const char* const* argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const Option& option = optionOf(argv[i]);
    if (option.hasValue && i + 1 == argc) throw UsageError(std::string(option.name) + " needs a value");
    option.apply(options, option.hasValue ? argv[++i] : "");
  }
  return options;
}

std::string optionsText(const Options& options) {
  std::string text = "instance " + std::to_string(options.instance);
  if (!options.name.empty()) text += ", name '" + options.name + "'";
  if (!options.identifier.empty()) text += ", identifier " + options.identifier;
  if (!options.advertising.empty()) text += ", advertising " + options.advertising;
  if (options.advertisesLocally) text += ", advertises locally";
  if (options.detached) text += ", detached";
  if (options.perUser) text += ", per user";
  if (!options.accessKey.empty()) text += ", an access key";
  if (!options.captureKey.empty()) text += ", a capture key";
  return text;
}

}  // namespace service
