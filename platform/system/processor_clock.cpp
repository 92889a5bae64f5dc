#include "platform/system/processor_facts.h"
#include "platform/system/processor_files.h"
#include "platform/system/small_file.h"

#include <fcntl.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <string>
#include <system_error>

namespace platform {
namespace {

constexpr std::uint64_t kHertzInKilohertz = 1000;
constexpr double kHertzInMegahertz = 1e6;
// No processor comes near; a number beyond is none, and none overflows.
constexpr double kMostHertz = 1e15;
constexpr std::size_t kClockFileLimit = 64;

// One number of kilohertz; processors that are off line say "<unknown>".
std::optional<std::uint64_t> clockInFile(const std::string& path) {
  const auto content = readSmallFile(AT_FDCWD, path.c_str(), kClockFileLimit);
  if (!content) return std::nullopt;
  const std::size_t length = std::min(content->find('\n'), content->size());
  std::uint64_t kilohertz = 0;
  const auto [end, error] = std::from_chars(content->data(), content->data() + length, kilohertz);
  const bool isNumber = error == std::errc() && end == content->data() + length;
  if (!isNumber || kilohertz == 0 || kilohertz > static_cast<std::uint64_t>(kMostHertz) / kHertzInKilohertz) {
    return std::nullopt;
  }
  return kilohertz * kHertzInKilohertz;
}

// "2600.000", or "2600.000000MHz".
std::optional<std::uint64_t> clockInListing(std::string_view text) {
  double megahertz = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), megahertz);
  const std::string_view unit = text.substr(static_cast<std::size_t>(end - text.data()));
  if (error != std::errc() || (!unit.empty() && unit != "MHz")) return std::nullopt;
  if (!(megahertz > 0) || megahertz > kMostHertz / kHertzInMegahertz) return std::nullopt;
  return static_cast<std::uint64_t>(std::llround(megahertz * kHertzInMegahertz));
}

void take(std::optional<std::uint64_t>& kept, std::optional<std::uint64_t> found, bool higher) {
  if (found && (!kept || (higher ? *found > *kept : *found < *kept))) kept = found;
}

ProcessorClock clockOfPolicies() {
  ProcessorClock clock;
  std::error_code none;
  std::filesystem::directory_iterator folder(processorFile("/sys/devices/system/cpu/cpufreq"), none);
  for (; !none && folder != std::filesystem::directory_iterator(); folder.increment(none)) {
    const std::string policy = folder->path().string();
    take(clock.current, clockInFile(policy + "/scaling_cur_freq"), true);
    take(clock.minimum, clockInFile(policy + "/cpuinfo_min_freq"), false);
    take(clock.maximum, clockInFile(policy + "/cpuinfo_max_freq"), true);
  }
  return clock;
}

}  // namespace

ProcessorClock processorClock() {
  ProcessorClock clock = clockOfPolicies();
  if (clock.current) return clock;
  const std::string listing = processorListing();
  for (const std::string_view key : {"cpu MHz", "clock"}) {
    for (std::size_t position = 0; const auto value = nextListedValue(listing, key, position);) {
      take(clock.current, clockInListing(*value), true);
    }
  }
  return clock;
}

}  // namespace platform
