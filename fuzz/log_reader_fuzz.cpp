// log_reader_fuzz.cpp: reads process logs from arbitrary bytes. However they are cut into pieces, the records and the
// damage are the same, damages do not overlap, no control character reaches a terminal, and a record that is put behind
// anything at all is read.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "tools/tovanctl/log_reader.h"
#include "tools/tovanctl/log_text.h"

namespace {

using tovanctl::LogDamage;
using tovanctl::LogPlace;
using tovanctl::LogReader;
using tovanctl::LogRecord;
using tovanctl::LogScopes;

constexpr std::string_view kRecord = "<log tms=\"1.000\" tmt=\"x\" pid=\"77\" msg=\"the last one\"/>\n";

void require(bool condition) {
  if (!condition) std::abort();
}

struct Outcome {
  std::vector<std::string> records;
  std::vector<std::string> damages;
  bool operator==(const Outcome&) const = default;
};

Outcome read(std::string_view file, std::size_t piece) {
  Outcome outcome;
  LogScopes scopes;
  std::uint64_t readUpTo = 0;
  LogReader reader(
      [&](const LogRecord& record) {
        const LogPlace place = scopes.place(record);
        const std::string text = tovanctl::logRecordText(record, &place, false);
        require(text.find('\x1b') == std::string::npos);
        outcome.records.push_back(text + tovanctl::logRecordJson(record, &place).dump());
      },
      [&](const LogDamage& damage) {
        require(damage.length > 0 && damage.offset >= readUpTo && damage.offset + damage.length <= file.size() + 1);
        readUpTo = damage.offset + damage.length;
        outcome.damages.push_back(std::to_string(damage.line) + " " + std::to_string(damage.offset) + " " +
                                  std::to_string(damage.length) + " " + damage.reason);
      });
  for (std::size_t at = 0; at < file.size(); at += piece) reader.feed(file.substr(at, piece));
  reader.finish();
  return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string file(reinterpret_cast<const char*>(data), size);
  const Outcome whole = read(file, file.size() + 1);
  require(whole == read(file, 1));
  require(whole == read(file, 13));
  const Outcome more = read(file + "\n" + std::string(kRecord), file.size() + kRecord.size() + 1);
  require(!more.records.empty() && more.records.back().find("the last one") != std::string::npos);
  return 0;
}
