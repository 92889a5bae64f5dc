// configuration_input.h: the configurations that the benchmarks work on. A configuration is a dictionary with a version
// and a section of services, each of 40 keys of the kinds and lengths that a service cache holds.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <vector>

namespace bench {

inline constexpr int kSmallServices = 8;    // about 20 KB as XML
inline constexpr int kLargeServices = 380;  // about 1 MB

// The key of the section that holds the services.
inline constexpr const char* kServicesSection = "mervaneservices";

// The configuration with that many services; the caller owns it. The same call gives an equal one every time.
CFDictionaryRef createConfiguration(int services);
// The same as an XML property list.
std::string configurationText(int services);

// Runs the registered benchmarks with the usual command line and prints, beside their own report, how many times
// `ours` is faster than `peer` for each pair of names whose median (or only) time was measured. Processor time counts,
// so that other work on the machine does not; for benchmarks with UseRealTime the clock does.
struct Comparison {
  std::string work;  // what both do, for the report
  std::string ours;  // name of the benchmark, arguments included
  std::string peer;
};
int runComparing(int argc, char** argv, const std::vector<Comparison>& comparisons);

}  // namespace bench
