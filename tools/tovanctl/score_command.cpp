#include <fmt/format.h>
#include <plinth/plinth.h>
#include <tovan/cf_util.h>
#include <tovan/host_perf_score_file.h>

#include <climits>
#include <memory>
#include <string>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

using tovan::CFUtil;

// The factors, each looked at once, so that the score is the product of what is shown.
struct Factors {
  double clockSpeed = 0;  // GHz
  unsigned int processors = 0;
  std::string type;
  bool isConfigured = false;  // the type, rather than detected
  std::string brand;
  double weight = 0;
  const char* weightFrom = "";  // "type", "default" or "none"
  double score() const { return clockSpeed * processors * weight; }
};

bool hasNumber(CFDictionaryRef weights, CFStringRef key) {
  double number = 0;
  return CFUtil::CFDictGetDouble(weights, key, number);
}

Factors factorsOf(const tovan::CCPUTypePerfScoreEntry& entry) {
  const plinth::CSharedCFRef<CFDictionaryRef> weights = entry.toDict();
  const plinth::CSharedCFRef<CFStringRef> type = entry.cpuType();
  CFStringRef current = nullptr;
  CFUtil::CFDictGetString(weights.get(), CFSTR("Current"), current);
  return {.clockSpeed = entry.cpuClockSpeed(),
          .processors = entry.numCPUs(),
          .type = text(type.get()),
          .isConfigured = current != nullptr && !CFEqual(current, CFSTR("RuntimeCheck")),
          .brand = entry.cpuBrand()->str(),
          .weight = entry.cpuTypeScore(type.get()),
          .weightFrom = hasNumber(weights.get(), type.get())         ? "type"
                        : hasNumber(weights.get(), CFSTR("Default")) ? "default"
                                                                     : "none"};
}

void printTable(const Factors& factors) {
  const std::string weightFrom = factors.weightFrom;
  const bool knowsClock = factors.clockSpeed > 0;
  const bool knowsCount = factors.processors != UINT_MAX;  // what a failed count gives
  Table table({"FACTOR", "VALUE", "WHERE FROM"});
  table.add(
      {"clock", knowsClock ? fmt::format("{:.3f} GHz", factors.clockSpeed) : fmt::format("{}", factors.clockSpeed),
       knowsClock ? "the fastest processor at this moment" : "this host does not tell: the score is negative"},
      knowsClock ? Style::plain : Style::warning);
  table.add({"processors", std::to_string(factors.processors), knowsCount ? "on line" : "this host does not tell"},
            knowsCount ? Style::plain : Style::warning);
  table.add({"type", factors.type,
             factors.isConfigured    ? "the configuration"
             : factors.brand.empty() ? "detected"
                                     : "detected: " + factors.brand});
  table.add({"weight", fmt::format("{}", factors.weight),
             weightFrom == "type"      ? "the configuration"
             : weightFrom == "default" ? "the configuration's default: the type has none of its own"
                                       : "the configuration has none for the type, and no default"});
  table.add({"score", fmt::format("{:.3f}", factors.score()), "the product"});
  print(table.render(wantsColour()));
}

void score(bool asJson) {
  const Factors factors = factorsOf(tovan::CHostPerfScoreFile().cpuTypes());
  if (!asJson) return printTable(factors);
  printJson({{"score", factors.score()},
             {"clockSpeed", factors.clockSpeed},
             {"processors", factors.processors},
             {"type", factors.type},
             {"typeFrom", factors.isConfigured ? "configuration" : "host"},
             {"brand", factors.brand},
             {"weight", factors.weight},
             {"weightFrom", factors.weightFrom}});
}

}  // namespace

void addScoreCommand(CLI::App& app) {
  const auto asJson = std::make_shared<bool>(false);
  CLI::App& command = *app.add_subcommand("score", "This host's processing power as one number, and its factors");
  command.add_flag("--json", *asJson, "One JSON document");
  command.callback([asJson] { score(*asJson); });
}

}  // namespace tovanctl
