#include "platform/system/processor_facts.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include <fstream>
#include <string>

#include "tests/support/processor_host.h"

namespace {

using platform::processorClock;
using platform::processorFamily;
using platform::processorType;
using test::ProcessorHost;
using test::x86Listing;

constexpr std::uint64_t kGiga = 1000000000;

std::string described(const std::optional<std::uint64_t>& hertz) { return hertz ? std::to_string(*hertz) : "none"; }

TEST(ProcessorClockTest, IsThatOfTheRunningHost) {
  const platform::ProcessorClock clock = processorClock();
  std::ifstream listing("/proc/cpuinfo");
  bool isListed = test::exists("/sys/devices/system/cpu/cpufreq/policy0/scaling_cur_freq");
  for (std::string line; std::getline(listing, line);) isListed = isListed || line.rfind("cpu MHz", 0) == 0;
  EXPECT_EQ(clock.current.has_value(), isListed) << described(clock.current);
  if (clock.current) {
    EXPECT_GT(*clock.current, kGiga / 20) << "a clock below 50 MHz";
    EXPECT_LT(*clock.current, 20 * kGiga) << "a clock above 20 GHz";
  }
}

TEST(ProcessorClockTest, IsTheHighestOfThePolicies) {
  const ProcessorHost host;
  host.clock("policy0", "scaling_cur_freq", "800000\n");
  host.clock("policy1", "scaling_cur_freq", "2400000\n");
  host.clock("policy2", "scaling_cur_freq", "1200000\n");
  EXPECT_EQ(described(processorClock().current), "2400000000");
}

TEST(ProcessorClockTest, HasTheLowestMinimumAndTheHighestMaximum) {
  const ProcessorHost host;
  host.clock("policy0", "cpuinfo_min_freq", "800000\n");
  host.clock("policy0", "cpuinfo_max_freq", "3000000\n");
  host.clock("policy4", "cpuinfo_min_freq", "400000\n");
  host.clock("policy4", "cpuinfo_max_freq", "2000000\n");
  const platform::ProcessorClock clock = processorClock();
  EXPECT_EQ(described(clock.current), "none");
  EXPECT_EQ(described(clock.minimum), "400000000");
  EXPECT_EQ(described(clock.maximum), "3000000000");
}

TEST(ProcessorClockTest, ComesFromTheListingWhereThereIsNoPolicy) {
  const ProcessorHost host;
  host.list(x86Listing(85, "X", "2399.998") + x86Listing(85, "X", "2600.000"));
  const platform::ProcessorClock clock = processorClock();
  EXPECT_EQ(described(clock.current), "2600000000");
  EXPECT_EQ(described(clock.minimum), "none");
  EXPECT_EQ(described(clock.maximum), "none");
}

TEST(ProcessorClockTest, ComesFromTheListingWhereAllPoliciesAreOffLine) {
  const ProcessorHost host;
  host.clock("policy0", "scaling_cur_freq", "<unknown>\n");
  host.list(x86Listing(85, "X", "1000.000"));
  EXPECT_EQ(described(processorClock().current), "1000000000");
}

TEST(ProcessorClockTest, KnowsTheListingWithItsUnit) {
  const ProcessorHost host("ppc64le");
  host.list("processor\t: 0\ncpu\t\t: POWER9\nclock\t\t: 2061.000000MHz\nrevision\t: 2.2\n");
  EXPECT_EQ(described(processorClock().current), "2061000000");
}

TEST(ProcessorClockTest, IsAbsentWithoutAnyFile) {
  const ProcessorHost host("aarch64");
  EXPECT_EQ(described(processorClock().current), "none");
  host.list("processor\t: 0\nBogoMIPS\t: 50.00\nCPU implementer\t: 0x41\n");
  EXPECT_EQ(described(processorClock().current), "none");
}

TEST(ProcessorClockTest, WhatIsNoClockIsAbsent) {
  const ProcessorHost host;
  for (const char* const text : {"", "\n", "0\n", "-800000\n", "1.5\n", "800000 kHz\n", "18446744073709551615\n",
                                 "99999999999999999999999\n", "nan\n", "0x10\n", "\x01\x02"}) {
    host.clock("policy0", "scaling_cur_freq", text);
    EXPECT_EQ(described(processorClock().current), "none") << text;
  }
  for (const char* const text :
       {"", "0.000", "-1", "nan", "inf", "1e300", "unknown", "2600,000", "2600 MHz later", "1e-400"}) {
    host.list(x86Listing(85, "X", text));
    EXPECT_EQ(described(processorClock().current), "none") << text;
  }
}

TEST(ProcessorClockTest, AFifoInTheFilesPlaceDoesNotMakeItWait) {
  const ProcessorHost host;
  host.clock("policy0", "scaling_max_freq", "1\n");
  const std::string fifo = host.root() + "/sys/devices/system/cpu/cpufreq/policy0/scaling_cur_freq";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(described(processorClock().current), "none");
}

TEST(ProcessorTypeTest, IsTheRunningMachines) {
  utsname system{};
  ASSERT_EQ(::uname(&system), 0);
  const auto type = processorType();
  ASSERT_TRUE(type.has_value());
  const std::string machine = system.machine;
  EXPECT_EQ(*type == 0x01000007, machine == "x86_64") << *type << " for " << machine;
  EXPECT_EQ(*type == 0x0100000c, machine == "aarch64") << *type << " for " << machine;
}

TEST(ProcessorTypeTest, HasTheNativeNumber) {
  const struct {
    const char* machine;
    std::int32_t type;
  } cases[] = {{"x86_64", 0x01000007},
               {"i386", 7},
               {"i686", 7},
               {"aarch64", 0x0100000c},
               {"armv7l", 12},
               {"ppc64le", 0x01000012},
               {"riscv64", 0},
               {"s390x", 0},
               {"", 0},
               {"ia64", 0}};
  for (const auto& one : cases) {
    const ProcessorHost host(one.machine);
    EXPECT_EQ(processorType(), std::optional<std::int32_t>(one.type)) << one.machine;
  }
}

TEST(ProcessorTypeTest, IsAbsentWhereTheKernelDoesNotTell) {
  const ProcessorHost host(std::nullopt);
  EXPECT_FALSE(processorType().has_value());
}

TEST(ProcessorFamilyTest, GoesByVendorFamilyAndModel) {
  const ProcessorHost host;
  const struct {
    int model;
    std::uint32_t family;
  } cases[] = {{13, 0}, {14, 0x73d67300}, {15, 0x426f69ef}, {22, 0x426f69ef}, {23, 0}, {85, 0}, {167, 0}};
  for (const auto& one : cases) {
    host.list(x86Listing(one.model, "X", "2000.000"));
    EXPECT_EQ(processorFamily(), one.family) << one.model;
  }
  host.list("vendor_id\t: AuthenticAMD\ncpu family\t: 6\nmodel\t\t: 15\n");
  EXPECT_EQ(processorFamily(), 0U);
  host.list("vendor_id\t: GenuineIntel\ncpu family\t: 15\nmodel\t\t: 15\n");
  EXPECT_EQ(processorFamily(), 0U);
  host.list("vendor_id\t: GenuineIntel\ncpu family\t: 6\nmodel\t\t: 15x\n");
  EXPECT_EQ(processorFamily(), 0U);
  host.list("");
  EXPECT_EQ(processorFamily(), 0U);
}

TEST(ProcessorBrandTest, IsTheFirstProcessorsName) {
  const ProcessorHost host;
  EXPECT_EQ(platform::processorBrand(), "");
  host.list(x86Listing(15, "Intel(R) Core(TM)2 CPU  6600 @ 2.40GHz", "1.0") + x86Listing(15, "Another", "1.0"));
  EXPECT_EQ(platform::processorBrand(), "Intel(R) Core(TM)2 CPU  6600 @ 2.40GHz");
  host.list("model name\t:\n");
  EXPECT_EQ(platform::processorBrand(), "");
  host.list("model name: cut off without a line's end");
  EXPECT_EQ(platform::processorBrand(), "cut off without a line's end");
}

}  // namespace
