#include "platform/system/processor_files.h"

#include "platform/system/processor_facts.h"
#include "platform/system/small_file.h"

#include <fcntl.h>
#include <sys/utsname.h>

#include <algorithm>
#include <atomic>

namespace platform {
namespace {

constexpr std::size_t kListingLimit = std::size_t{1024} * 1024;

constinit std::atomic<const char*> rootForTesting{nullptr};
constinit std::atomic<const char*> machineForTesting{nullptr};

std::string_view withoutBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

}  // namespace

std::string processorFile(std::string_view path) {
  const char* const root = rootForTesting.load(std::memory_order_relaxed);
  return (root == nullptr ? "" : root) + std::string(path);
}

std::string processorListing() {
  return readSmallFile(AT_FDCWD, processorFile("/proc/cpuinfo").c_str(), kListingLimit).value_or("");
}

std::optional<std::string_view> nextListedValue(std::string_view listing, std::string_view key, std::size_t& position) {
  while (position < listing.size()) {
    const std::size_t end = std::min(listing.find('\n', position), listing.size());
    const std::string_view line = listing.substr(position, end - position);
    position = end + 1;
    const std::size_t colon = line.find(':');
    if (colon != std::string_view::npos && withoutBlanks(line.substr(0, colon)) == key) {
      return withoutBlanks(line.substr(colon + 1));
    }
  }
  return std::nullopt;
}

std::optional<std::string> machineType() {
  if (rootForTesting.load(std::memory_order_relaxed) != nullptr) {
    const char* const machine = machineForTesting.load(std::memory_order_relaxed);
    return machine == nullptr ? std::nullopt : std::optional<std::string>(machine);
  }
  utsname system{};
  if (::uname(&system) != 0) return std::nullopt;
  return system.machine;
}

void setProcessorHostForTesting(const char* root, const char* machine) noexcept {
  machineForTesting.store(machine, std::memory_order_relaxed);
  rootForTesting.store(root, std::memory_order_relaxed);
}

}  // namespace platform
