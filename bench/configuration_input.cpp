#include "bench/configuration_input.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <map>

namespace bench {
namespace {

class Dictionary {
 public:
  Dictionary()
      : dictionary_(
            CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks)) {}

  // Takes over the caller's reference to the value.
  void set(const std::string& key, CFTypeRef value) {
    const CFStringRef name = CFStringCreateWithCString(nullptr, key.c_str(), kCFStringEncodingUTF8);
    CFDictionarySetValue(dictionary_, name, value);
    CFRelease(name);
    CFRelease(value);
  }
  void set(const std::string& key, const std::string& value) {
    set(key, CFStringCreateWithCString(nullptr, value.c_str(), kCFStringEncodingUTF8));
  }
  void set(const std::string& key, const char* value) { set(key, std::string(value)); }
  void set(const std::string& key, bool value) { set(key, CFTypeRef{value ? kCFBooleanTrue : kCFBooleanFalse}); }
  void set(const std::string& key, int value) { set(key, CFNumberCreate(nullptr, kCFNumberIntType, &value)); }
  void set(const std::string& key, double value) { set(key, CFNumberCreate(nullptr, kCFNumberDoubleType, &value)); }

  CFMutableDictionaryRef take() { return dictionary_; }

 private:
  CFMutableDictionaryRef dictionary_;
};

CFTypeRef createUserPreferences(int service) {
  Dictionary preferences;
  preferences.set("StdoutPath", "/var/log/service-" + std::to_string(service) + ".log");
  preferences.set("Retries", 3 + service % 5);
  return preferences.take();
}

CFTypeRef createUserIDs(int service) {
  const CFMutableArrayRef users = CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
  for (int i = 0; i < 2; ++i) {
    const int user = 501 + (service + i) % 300;
    const CFNumberRef number = CFNumberCreate(nullptr, kCFNumberIntType, &user);
    CFArrayAppendValue(users, number);
    CFRelease(number);
  }
  return users;
}

CFTypeRef createDigest(int service) {
  UInt8 bytes[20];
  for (int i = 0; i < 20; ++i) bytes[i] = static_cast<UInt8>(service * 31 + i * 7);
  return CFDataCreate(nullptr, bytes, sizeof bytes);
}

CFTypeRef createService(int service) {
  const std::string number = std::to_string(service);
  Dictionary entry;
  entry.set("NetworkName", "host-" + number + ".example.org");
  entry.set("DisplayName", "Media conversion " + number);
  entry.set("Description", "Converts incoming media & checks the result against the profile, part " + number);
  entry.set("Executable", "/Library/Application Support/Lumisphere/bin/service-" + number);
  entry.set("Path", "/Library/Application Support/Lumisphere/services/service-" + number);
  entry.set("CaptureKey", "capture-" + number);
  entry.set("LaunchHint", service % 3 == 0 ? "überall" : "local");
  entry.set("Kind", "requestprocessor:com.example.service" + number);
  for (const char* flag : {"SharePref", "PerUserService", "Enabled", "ExplicitSyncOnly", "DetachDaemon", "LocalAds",
                           "Logging", "TruncateLog", "Visible", "Unmanaged", "Restart", "Nice"}) {
    entry.set(flag, (service + static_cast<int>(flag[0])) % 2 == 0);
  }
  entry.set("Version", 303);
  entry.set("UserID", service % 2 == 0 ? -1 : 501 + service);
  entry.set("Instances", 1 + service % 16);
  entry.set("LogLevel", service % 6);
  entry.set("Advertising", service * 1000 + 17);
  entry.set("Port", 2190 + service);
  entry.set("MinFreeMB", 100 * service);
  entry.set("Throttle", 10);
  entry.set("ExitTimeOut", 20);
  entry.set("Priority", service % 40 - 20);
  entry.set("OpenFiles", 2048);
  entry.set("CPUShare", 0.1 * service);
  entry.set("Weight", 1.0 / (1 + service));
  entry.set("Score", 12345.678 + service);
  entry.set("Installed", CFTypeRef{CFDateCreate(nullptr, 700000000.0 + service * 86400)});
  entry.set("Changed", CFTypeRef{CFDateCreate(nullptr, 710000000.0 + service * 3600)});
  entry.set("Digest", createDigest(service));
  entry.set("UserIDs", createUserIDs(service));
  entry.set("UserPrefs", createUserPreferences(service));
  entry.set("Owner", "lumisphere");
  return entry.take();
}

// Collects the times while the usual report is printed.
class Collector : public benchmark::ConsoleReporter {
 public:
  Collector() : ConsoleReporter(OO_Tabular) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      // With repetitions the median comes behind the single runs and takes their place.
      const bool single = run.run_type == Run::RT_Iteration;
      const bool wallClock = run.run_name.str().find("/real_time") != std::string::npos ||
                             run.run_name.str().find("/manual_time") != std::string::npos;
      if (!run.error_occurred && (single || run.aggregate_name == "median")) {
        times_[run.run_name.str()] = (wallClock ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime()) /
                                     benchmark::GetTimeUnitMultiplier(run.time_unit);
      }
    }
  }
  // In seconds; 0 when the benchmark did not run.
  double timeOf(const std::string& name) const {
    const auto found = times_.find(name);
    return found == times_.end() ? 0 : found->second;
  }

 private:
  std::map<std::string, double> times_;
};

}  // namespace

CFDictionaryRef createConfiguration(int services) {
  Dictionary section;
  for (int service = 0; service < services; ++service) {
    section.set("com.example.lumisphere.service" + std::to_string(service), createService(service));
  }
  Dictionary root;
  root.set("Version", "1.0");
  root.set(kServicesSection, CFTypeRef{section.take()});
  return root.take();
}

std::string configurationText(int services) {
  const CFDictionaryRef configuration = createConfiguration(services);
  const CFDataRef data = CFPropertyListCreateXMLData(nullptr, configuration);
  std::string text(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                   static_cast<std::size_t>(CFDataGetLength(data)));
  CFRelease(data);
  CFRelease(configuration);
  return text;
}

int runComparing(int argc, char** argv, const std::vector<Comparison>& comparisons) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  benchmark::Shutdown();
  std::printf("\n%-44s %12s %12s %8s\n", "work", "ours (us)", "peer (us)", "ratio");
  for (const Comparison& comparison : comparisons) {
    const double ours = collector.timeOf(comparison.ours), peer = collector.timeOf(comparison.peer);
    if (ours <= 0 || peer <= 0) continue;
    std::printf("%-44s %12.2f %12.2f %7.2fx\n", comparison.work.c_str(), ours * 1e6, peer * 1e6, peer / ours);
  }
  return 0;
}

}  // namespace bench
