// Reading (with releasing) and writing of XML property lists, beside libplist on the same bytes in the same run.
#include "bench/configuration_input.h"

#include <benchmark/benchmark.h>
#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>

namespace {

void setThroughput(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

int services(const benchmark::State& state) { return static_cast<int>(state.range(0)); }

void ParseAndRelease(benchmark::State& state) {
  const std::string text = bench::configurationText(services(state));
  const CFDataRef data =
      CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(text.data()), static_cast<CFIndex>(text.size()));
  for (auto _ : state) {
    const CFPropertyListRef list =
        CFPropertyListCreateWithData(nullptr, data, kCFPropertyListImmutable, nullptr, nullptr);
    if (list == nullptr) state.SkipWithError("the configuration was refused");
    CFRelease(list);
  }
  CFRelease(data);
  setThroughput(state, text.size());
}

void ParseAndReleaseLibplist(benchmark::State& state) {
  const std::string text = bench::configurationText(services(state));
  for (auto _ : state) {
    plist_t list = nullptr;
    plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &list);
    if (list == nullptr) state.SkipWithError("the configuration was refused");
    plist_free(list);
  }
  setThroughput(state, text.size());
}

void Serialise(benchmark::State& state) {
  const CFDictionaryRef configuration = bench::createConfiguration(services(state));
  std::size_t size = 0;
  for (auto _ : state) {
    const CFDataRef data = CFPropertyListCreateXMLData(nullptr, configuration);
    size = static_cast<std::size_t>(CFDataGetLength(data));
    CFRelease(data);
  }
  CFRelease(configuration);
  setThroughput(state, size);
}

void SerialiseLibplist(benchmark::State& state) {
  const std::string text = bench::configurationText(services(state));
  plist_t list = nullptr;
  plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &list);
  std::uint32_t size = 0;
  for (auto _ : state) {
    char* written = nullptr;
    plist_to_xml(list, &written, &size);
    plist_to_xml_free(written);
  }
  plist_free(list);
  setThroughput(state, size);
}

BENCHMARK(ParseAndRelease)->Arg(bench::kSmallServices)->Arg(bench::kLargeServices)->Unit(benchmark::kMicrosecond);
BENCHMARK(ParseAndReleaseLibplist)
    ->Arg(bench::kSmallServices)
    ->Arg(bench::kLargeServices)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(Serialise)->Arg(bench::kSmallServices)->Arg(bench::kLargeServices)->Unit(benchmark::kMicrosecond);
BENCHMARK(SerialiseLibplist)->Arg(bench::kSmallServices)->Arg(bench::kLargeServices)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  return bench::runComparing(
      argc, argv,
      {{"parse and release, 20 KB, libplist", "ParseAndRelease/8", "ParseAndReleaseLibplist/8"},
       {"parse and release, 1 MB, libplist", "ParseAndRelease/380", "ParseAndReleaseLibplist/380"},
       {"serialise, 20 KB, libplist", "Serialise/8", "SerialiseLibplist/8"},
       {"serialise, 1 MB, libplist", "Serialise/380", "SerialiseLibplist/380"}});
}
