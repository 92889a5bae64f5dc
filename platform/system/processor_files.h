// processor_files.h: where the facts about processors lie.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

// The path as it is, or below the folder that a test put in the root's place.
std::string processorFile(std::string_view path);
// /proc/cpuinfo, of very many processors the first thousand; empty when it cannot be read.
std::string processorListing();
// The value of a "KEY : VALUE" line, blanks around it left out. Gives the first such line at or behind `position`,
// which then lies behind it; nothing when there is no more.
std::optional<std::string_view> nextListedValue(std::string_view listing, std::string_view key, std::size_t& position);
// What uname calls the machine; nothing when it fails.
std::optional<std::string> machineType();

}  // namespace platform
