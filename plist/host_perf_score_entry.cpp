#include <tovan/cf_util.h>
#include <tovan/host_perf_score_file.h>

#include "platform/system/processor_facts.h"
#include "platform/system/processors.h"

namespace tovan {

using plinth::CSharedCFRef;

namespace {

// What a failed call of the native platform gives.
constexpr int kFailed = -1;
constexpr double kHertzInGigahertz = 1e9;
constexpr std::size_t kShortestBrand = 5;
constexpr std::size_t kLongestBrand = 1023;

CFStringRef currentKey() { return CFSTR("Current"); }
CFStringRef defaultKey() { return CFSTR("Default"); }
CFStringRef runtimeCheck() { return CFSTR("RuntimeCheck"); }

// As much of the brand text as the library looks at.
std::string brandText() { return platform::processorBrand().substr(0, kLongestBrand); }

bool isXeon() {
  const std::string brand = brandText();
  return brand.size() >= kShortestBrand && brand.find("Xeon") != std::string::npos;
}

CFStringRef detectedType() {
  const auto type = platform::processorType();
  if (!type) {
    CFUtil::LogToConsole("Error: host_info() failed.");
    return defaultKey();
  }
  if ((*type & platform::kProcessorTypeMask) != platform::kProcessorTypeX86) return defaultKey();
  switch (platform::processorFamily()) {
    case platform::kProcessorFamilyYonah:
      return CFSTR("Intel Core");
    case platform::kProcessorFamilyMerom:
      return isXeon() ? CFSTR("Intel Core Xeon") : CFSTR("Intel Core 2");
    default:
      return CFSTR("Intel X86");
  }
}

}  // namespace

CHostPerfScoreEntry::CHostPerfScoreEntry() = default;
CHostPerfScoreEntry::CHostPerfScoreEntry(CFStringRef name, CFDictionaryRef dictionary)
    : name_(CSharedCFRef<CFStringRef>::retaining(name)), dictionary_(CFUtil::CFDictMakeMutableCopy(dictionary)) {}
CHostPerfScoreEntry::CHostPerfScoreEntry(const CHostPerfScoreEntry& other)
    : name_(other.name_), dictionary_(CFUtil::CFDictMakeMutableCopy(other.dictionary_.get())) {}
CHostPerfScoreEntry& CHostPerfScoreEntry::operator=(const CHostPerfScoreEntry& other) {
  if (this == &other) return *this;
  name_ = other.name_;
  dictionary_ = CFUtil::CFDictMakeMutableCopy(other.dictionary_.get());
  return *this;
}
CHostPerfScoreEntry::~CHostPerfScoreEntry() = default;

void CHostPerfScoreEntry::fromDict(CFDictionaryRef dictionary) {
  dictionary_ = CFUtil::CFDictMakeMutableCopy(dictionary);
}

CSharedCFRef<CFMutableDictionaryRef> CHostPerfScoreEntry::toDict() const { return dictionary_; }

void CHostPerfScoreEntry::setName(CFStringRef name) { name_ = CSharedCFRef<CFStringRef>::retaining(name); }

double CCPUTypePerfScoreEntry::cpuPerfScore() const {
  const double clock = cpuClockSpeed();
  const unsigned int count = numCPUs();
  return clock * count * cpuTypeScore();
}

unsigned int CCPUTypePerfScoreEntry::numCPUs() const {
  const auto count = platform::knownProcessorCount();
  if (!count) CFUtil::LogToConsole("Error: sysctlbyname(hw.ncpu) failed.");
  // Deliberately the failure's number in place of a count.
  return static_cast<unsigned int>(count.value_or(kFailed));
}

double CCPUTypePerfScoreEntry::cpuClockSpeed() const {
  const platform::ProcessorClock clock = platform::processorClock();
  if (!clock.current) {
    CFUtil::LogToConsole("Error: sysctlbyname(hw.cpufrequency) failed.");
    return kFailed;
  }
  std::uint64_t hertz = *clock.current;
  if (clock.minimum && *clock.minimum > hertz) hertz = *clock.minimum;
  if (clock.maximum && *clock.maximum < hertz) hertz = *clock.maximum;
  return static_cast<double>(hertz) / kHertzInGigahertz;
}

CSharedCFRef<CFStringRef> CCPUTypePerfScoreEntry::cpuType() const {
  CFStringRef current = nullptr;
  if (CFUtil::CFDictGetString(toDict().get(), currentKey(), current) && !CFEqual(current, runtimeCheck())) {
    return CSharedCFRef<CFStringRef>::retaining(current);
  }
  return CSharedCFRef<CFStringRef>::retaining(detectedType());
}

double CCPUTypePerfScoreEntry::cpuTypeScore(CFStringRef type) const {
  const CSharedCFRef<CFMutableDictionaryRef> weights = toDict();
  double weight = 1.0;
  if (CFUtil::CFDictGetDouble(weights.get(), type, weight)) return weight;
  const plinth::CStringRef line =
      plinth::CString::sprintf("CCPUTypePerfScoreEntry::cpuTypeScore: unknown CPU type \"%@\".", type);
  CFUtil::LogToConsole(line->getUTF8Ptr());
  return CFUtil::CFDictGetDouble(weights.get(), defaultKey(), weight) ? weight : 1.0;
}

double CCPUTypePerfScoreEntry::cpuTypeScore() const { return cpuTypeScore(cpuType().get()); }

plinth::CStringRef CCPUTypePerfScoreEntry::cpuBrand() {
  return plinth::CString::nullToEmptyString(plinth::CSTR(brandText()));
}

}  // namespace tovan
