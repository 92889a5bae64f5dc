#include "platform/system/processor_facts.h"

#include "platform/system/processor_files.h"

#include <charconv>
#include <string_view>
#include <system_error>

namespace platform {
namespace {

std::string_view firstListedValue(std::string_view listing, std::string_view key) {
  std::size_t position = 0;
  return nextListedValue(listing, key, position).value_or("");
}

// -1 for what is no number.
int numberListed(std::string_view listing, std::string_view key) {
  const std::string_view text = firstListedValue(listing, key);
  int number = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? number : -1;
}

bool isI386(std::string_view machine) {
  return machine.size() == 4 && machine[0] == 'i' && machine.substr(2) == "86";  // i386 to i686
}

}  // namespace

std::optional<std::int32_t> processorType() {
  const std::optional<std::string> machine = machineType();
  if (!machine) return std::nullopt;
  if (*machine == "x86_64") return kProcessorTypeX86 | kProcessorType64;
  if (isI386(*machine)) return kProcessorTypeX86;
  if (machine->starts_with("aarch64")) return kProcessorTypeARM | kProcessorType64;
  if (machine->starts_with("arm")) return kProcessorTypeARM;
  if (machine->starts_with("ppc64")) return kProcessorTypePowerPC | kProcessorType64;
  return 0;
}

std::uint32_t processorFamily() {
  const std::string listing = processorListing();
  if (firstListedValue(listing, "vendor_id") != "GenuineIntel" || numberListed(listing, "cpu family") != 6) return 0;
  switch (numberListed(listing, "model")) {
    case 14:
      return kProcessorFamilyYonah;
    case 15:
    case 22:
      return kProcessorFamilyMerom;
    default:
      return 0;
  }
}

std::string processorBrand() { return std::string(firstListedValue(processorListing(), "model name")); }

}  // namespace platform
