// The factors of the score, on hosts of all kinds.
#include <gmock/gmock.h>
#include <tovan/cf_util.h>
#include <tovan/host_perf_score_file.h>

#include <string>

#include "tests/plist/plist_support.h"
#include "tests/support/processor_host.h"

namespace {

using namespace test;
using testing::HasSubstr;
using tovan::CCPUTypePerfScoreEntry;

CCPUTypePerfScoreEntry cpuTypes(const std::string& body) {
  return CCPUTypePerfScoreEntry(CFSTR("CPUTypes"), dict(body).get());
}
std::string current(const std::string& type) { return "<key>Current</key><string>" + type + "</string>"; }
std::string weight(const std::string& type, const std::string& value) {
  return "<key>" + type + "</key><real>" + value + "</real>";
}
std::string typeOf(const CCPUTypePerfScoreEntry& entry) { return utf8(entry.cpuType().get()); }
std::string unknownLine(const std::string& type) {
  return "CCPUTypePerfScoreEntry::cpuTypeScore: unknown CPU type \"" + type + "\".\n";
}

// The console lines of a call, without their heads (time, program, process).
template <class Call>
std::string linesOf(Call call) {
  std::string lines;
  const std::string console = consoleOf(call);
  for (std::size_t at = 0; at < console.size();) {
    const std::size_t end = console.find('\n', at);
    lines += console.substr(console.find("] ", at) + 2, end + 1 - console.find("] ", at) - 2);
    at = end + 1;
  }
  return lines;
}

TEST(CPUTypePerfScoreEntryTest, CountsTheProcessorsThatAreOnLine) {
  EXPECT_EQ(CCPUTypePerfScoreEntry().numCPUs(), static_cast<unsigned int>(platform::processorCount()));
  const ProcessorHost host("x86_64", 12);
  EXPECT_EQ(CCPUTypePerfScoreEntry().numCPUs(), 12U);
}

TEST(CPUTypePerfScoreEntryTest, ACountThatFailsIsReportedAndGivesTheFailure) {
  const ProcessorHost host("x86_64", -1);
  EXPECT_EQ(linesOf([] { EXPECT_EQ(CCPUTypePerfScoreEntry().numCPUs(), 4294967295U); }),
            "Error: sysctlbyname(hw.ncpu) failed.\n");
}

TEST(CPUTypePerfScoreEntryTest, TheClockIsInGigahertz) {
  const ProcessorHost host;
  host.clock("policy0", "scaling_cur_freq", "2345678\n");
  EXPECT_DOUBLE_EQ(CCPUTypePerfScoreEntry().cpuClockSpeed(), 2.345678);
}

TEST(CPUTypePerfScoreEntryTest, TheClockIsKeptBetweenItsReportedBounds) {
  const struct {
    const char* now;
    const char* minimum;
    const char* maximum;
    double expected;
  } cases[] = {
      {"4500000", "800000", "3000000", 3.0},  // above the maximum: lowered
      {"400000", "800000", "3000000", 0.8},   // below the minimum: raised
      {"2000000", "800000", "3000000", 2.0},  // between
      {"3000000", "800000", "3000000", 3.0},  // at a bound
      {"400000", "800000", "600000", 0.6},    // raised first, then lowered
      {"4500000", "", "", 4.5},               // no bounds reported
      {"4500000", "", "3000000", 3.0},        // one of them
      {"400000", "800000", "garbage", 0.8},
  };
  for (const auto& one : cases) {
    const ProcessorHost host;
    host.clock("policy0", "scaling_cur_freq", one.now);
    host.clock("policy0", "cpuinfo_min_freq", one.minimum);
    host.clock("policy0", "cpuinfo_max_freq", one.maximum);
    EXPECT_DOUBLE_EQ(CCPUTypePerfScoreEntry().cpuClockSpeed(), one.expected)
        << one.now << " in " << one.minimum << " to " << one.maximum;
  }
}

TEST(CPUTypePerfScoreEntryTest, AHostWithoutAClockReadingIsReportedAndGivesTheFailure) {
  const ProcessorHost host("aarch64", 4);
  host.clock("policy0", "cpuinfo_min_freq", "800000");  // bounds alone are no reading
  host.clock("policy0", "cpuinfo_max_freq", "1800000");
  const CCPUTypePerfScoreEntry entry = cpuTypes(weight("Default", "0.5"));
  EXPECT_EQ(linesOf([&] { EXPECT_EQ(entry.cpuClockSpeed(), -1.0); }), "Error: sysctlbyname(hw.cpufrequency) failed.\n");
  EXPECT_EQ(linesOf([&] { EXPECT_DOUBLE_EQ(entry.cpuPerfScore(), -1.0 * 4 * 0.5); }),
            "Error: sysctlbyname(hw.cpufrequency) failed.\n");
}

TEST(CPUTypePerfScoreEntryTest, ACurrentTypeIsTakenWithoutAnyDetection) {
  const ProcessorHost host(std::nullopt);  // a detection would report its failure
  EXPECT_EQ(linesOf([] { EXPECT_EQ(typeOf(cpuTypes(current("Intel Core 2"))), "Intel Core 2"); }), "");
  EXPECT_EQ(typeOf(cpuTypes(current("Something Else"))), "Something Else");
  EXPECT_EQ(typeOf(cpuTypes(current(""))), "");
  EXPECT_EQ(typeOf(cpuTypes(current("runtimecheck"))), "runtimecheck") << "case counts";
}

TEST(CPUTypePerfScoreEntryTest, RuntimeCheckOrNoStringMeansDetection) {
  const ProcessorHost host;
  host.list(x86Listing(14, "Intel(R) Core(TM) Duo CPU T2500", "2000.000"));
  EXPECT_EQ(typeOf(cpuTypes(current("RuntimeCheck"))), "Intel Core");
  EXPECT_EQ(typeOf(cpuTypes("")), "Intel Core");
  EXPECT_EQ(typeOf(cpuTypes("<key>Current</key><integer>7</integer>")), "Intel Core");
  EXPECT_EQ(typeOf(CCPUTypePerfScoreEntry()), "Intel Core");
}

TEST(CPUTypePerfScoreEntryTest, TheTypeGoesByFamilyAndBrand) {
  const struct {
    int model;
    const char* brand;
    const char* type;
  } cases[] = {
      {14, "Intel(R) Core(TM) Duo CPU T2500 @ 2.00GHz", "Intel Core"},
      {14, "Intel(R) Xeon(TM) CPU 2.00GHz", "Intel Core"},  // the brand counts for one family only
      {15, "Intel(R) Core(TM)2 CPU 6600 @ 2.40GHz", "Intel Core 2"},
      {15, "Intel(R) Xeon(R) CPU 5160 @ 3.00GHz", "Intel Core Xeon"},
      {15, "", "Intel Core 2"},
      {15, "Xeon", "Intel Core 2"},  // shorter than 5 bytes
      {15, "Xeon!", "Intel Core Xeon"},
      {15, "XEON processor", "Intel Core 2"},
      {22, "Intel(R) Celeron(R) CPU 220 @ 1.20GHz", "Intel Core 2"},
      {85, "Intel(R) Xeon(R) Platinum 8175M CPU @ 2.50GHz", "Intel X86"},
  };
  for (const auto& one : cases) {
    for (const char* const machine : {"x86_64", "i686"}) {
      const ProcessorHost host(machine);
      host.list(x86Listing(one.model, one.brand, "2000.000"));
      EXPECT_EQ(typeOf(CCPUTypePerfScoreEntry()), one.type) << one.model << " " << one.brand;
    }
  }
}

TEST(CPUTypePerfScoreEntryTest, OfTheBrandTextTheFirst1023BytesCount) {
  const ProcessorHost host;
  host.list(x86Listing(15, std::string(1019, 'x') + "Xeon", "2000.000"));
  EXPECT_EQ(typeOf(CCPUTypePerfScoreEntry()), "Intel Core Xeon");
  host.list(x86Listing(15, std::string(1020, 'x') + "Xeon", "2000.000"));
  EXPECT_EQ(typeOf(CCPUTypePerfScoreEntry()), "Intel Core 2");
}

TEST(CPUTypePerfScoreEntryTest, AProcessorOfAnotherKindIsTheDefault) {
  for (const char* const machine : {"aarch64", "armv7l", "ppc64le", "riscv64"}) {
    const ProcessorHost host(machine);
    host.list(x86Listing(15, "Xeon Xeon", "2000.000"));  // not looked at
    EXPECT_EQ(linesOf([] { EXPECT_EQ(typeOf(CCPUTypePerfScoreEntry()), "Default"); }), "") << machine;
  }
}

TEST(CPUTypePerfScoreEntryTest, AHostThatDoesNotTellItsKindIsReportedAndTheDefault) {
  const ProcessorHost host(std::nullopt);
  EXPECT_EQ(linesOf([] { EXPECT_EQ(typeOf(CCPUTypePerfScoreEntry()), "Default"); }), "Error: host_info() failed.\n");
}

TEST(CPUTypePerfScoreEntryTest, AWeightIsFoundByTheExactName) {
  const CCPUTypePerfScoreEntry entry =
      cpuTypes(weight("Intel X86", "0.75") + weight("Intel Core", "1.25") + weight("Default", "0.8") +
               "<key>Whole</key><integer>3</integer><key>Text</key><string>9</string>" + weight("Odd", "-2.5"));
  EXPECT_EQ(linesOf([&] {
              EXPECT_EQ(entry.cpuTypeScore(CFSTR("Intel X86")), 0.75);
              EXPECT_EQ(entry.cpuTypeScore(CFSTR("Intel Core")), 1.25);
              EXPECT_EQ(entry.cpuTypeScore(CFSTR("Whole")), 3.0);
              EXPECT_EQ(entry.cpuTypeScore(CFSTR("Odd")), -2.5);
              EXPECT_EQ(entry.cpuTypeScore(CFSTR("Default")), 0.8);
            }),
            "");
  for (const char* const type : {"Intel x86", "Intel Core 2", "Intel", "", "Text"}) {
    EXPECT_EQ(linesOf([&] { EXPECT_EQ(entry.cpuTypeScore(str(type).get()), 0.8) << type; }), unknownLine(type));
  }
}

TEST(CPUTypePerfScoreEntryTest, WithoutADefaultAnUnknownTypeWeighsOne) {
  for (const CCPUTypePerfScoreEntry& entry :
       {CCPUTypePerfScoreEntry(), cpuTypes(""), cpuTypes("<key>Default</key><string>0.8</string>")}) {
    EXPECT_EQ(linesOf([&] { EXPECT_EQ(entry.cpuTypeScore(CFSTR("Café")), 1.0); }), unknownLine("Café"));
  }
  EXPECT_EQ(linesOf([] { EXPECT_EQ(CCPUTypePerfScoreEntry().cpuTypeScore(nullptr), 1.0); }), unknownLine("(null)"));
}

TEST(CPUTypePerfScoreEntryTest, TheScoreIsTheProductOfTheFactors) {
  const ProcessorHost host("x86_64", 8);
  host.list(x86Listing(14, "Intel(R) Core(TM) Duo", "2500.000"));
  const CCPUTypePerfScoreEntry entry = cpuTypes(weight("Intel Core", "1.5") + weight("Default", "0.1"));
  EXPECT_EQ(entry.cpuTypeScore(), 1.5);
  EXPECT_EQ(linesOf([&] { EXPECT_DOUBLE_EQ(entry.cpuPerfScore(), 2.5 * 8 * 1.5); }), "");
}

TEST(CPUTypePerfScoreEntryTest, TheRunningHostHasAScore) {
  double score = 0;
  const std::string lines = linesOf([&] { score = CCPUTypePerfScoreEntry().cpuPerfScore(); });
  EXPECT_EQ(score < 0, lines.find("hw.cpufrequency") != std::string::npos) << score << "\n" << lines;
  EXPECT_NE(score, 0);
  EXPECT_THAT(lines, HasSubstr("unknown CPU type \"" + typeOf(CCPUTypePerfScoreEntry()) + "\"."));
}

TEST(CPUTypePerfScoreEntryTest, TellsTheBrand) {
  const ProcessorHost host;
  EXPECT_EQ(CCPUTypePerfScoreEntry::cpuBrand()->str(), "");
  host.list(x86Listing(85, "Intel(R) Xeon(R) Gold", "1.0"));
  EXPECT_EQ(CCPUTypePerfScoreEntry::cpuBrand()->str(), "Intel(R) Xeon(R) Gold");
}

}  // namespace
