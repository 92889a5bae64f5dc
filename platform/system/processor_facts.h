// processor_facts.h: what kind of processor this host has, and how fast it runs at this moment.
//
// Kinds and families carry the numbers that the native platform gives them. Safe from any thread; nothing is kept
// between calls, since clocks change. A fact that the host does not tell, or tells in a form that makes no sense, is
// absent.
#pragma once

#include "platform/system/export.h"

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

// In hertz.
struct ProcessorClock {
  // The highest of all processors' present clocks: one that idles is clocked down, and says nothing of what it can do.
  // From cpufreq, else from /proc/cpuinfo, which not every architecture fills in.
  std::optional<std::uint64_t> current;
  // The lowest and the highest clock of any processor, from cpufreq; virtual machines mostly have none.
  std::optional<std::uint64_t> minimum;
  std::optional<std::uint64_t> maximum;
};
PLATFORM_EXPORT ProcessorClock processorClock();

// The kind of processor: an architecture's number, with kProcessorType64 where its words have 64 bits. 0 for a machine
// that the native platform has no number for; nothing when the kernel does not tell.
inline constexpr std::int32_t kProcessorTypeMask = 0x00ffffff;
inline constexpr std::int32_t kProcessorTypeX86 = 7;
inline constexpr std::int32_t kProcessorTypeARM = 12;
inline constexpr std::int32_t kProcessorTypePowerPC = 18;
inline constexpr std::int32_t kProcessorType64 = 0x01000000;
PLATFORM_EXPORT std::optional<std::int32_t> processorType();

// The family of an x86 processor. Only the families that something asks for have a number; 0 for every other one.
inline constexpr std::uint32_t kProcessorFamilyYonah = 0x73d67300;
inline constexpr std::uint32_t kProcessorFamilyMerom = 0x426f69ef;
PLATFORM_EXPORT std::uint32_t processorFamily();

// The name that the processor gives itself, such as "Intel(R) Core(TM)2 CPU 6600 @ 2.40GHz"; of several kinds the
// first one's. Empty when the host does not tell.
PLATFORM_EXPORT std::string processorBrand();

// For tests: the files below the folder `root` and the machine name, as uname gives it, stand for this host's own; a
// null machine is a kernel that does not tell. A null root puts the host back. The texts are kept by the caller.
PLATFORM_EXPORT void setProcessorHostForTesting(const char* root, const char* machine) noexcept;

}  // namespace platform
