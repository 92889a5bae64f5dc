#include "tools/tovanctl/log_output.h"

#include <fmt/format.h>

#include "tools/tovanctl/log_text.h"
#include "tools/tovanctl/output.h"

namespace tovanctl {

bool LogDamages::add(const LogDamage& damage) {
  ++count_;
  if (places_.size() == kMostKept) return false;
  places_.push_back(damage);
  return true;
}

void LogDamages::report(const std::string& path) const {
  if (count_ == 0) return;
  std::string text = fmt::format("{} record{} of {} could not be read:", count_, count_ == 1 ? "" : "s", path);
  for (const LogDamage& place : places_) text += "\n  " + damageText(place);
  if (count_ > places_.size()) text += fmt::format("\n  and {} more", count_ - places_.size());
  message(text);
}

Json LogDamages::json() const {
  Json places = Json::array();
  for (const LogDamage& place : places_) {
    places.push_back(
        {{"line", place.line}, {"offset", place.offset}, {"length", place.length}, {"reason", place.reason}});
  }
  return {{"count", count_}, {"places", std::move(places)}};
}

std::string damageText(const LogDamage& damage) {
  return fmt::format("line {}, byte {} ({} byte{}): {}", damage.line, damage.offset, damage.length,
                     damage.length == 1 ? "" : "s", damage.reason);
}

LogRecord asWanted(const LogRecord& record, const LogOptions& options) {
  LogRecord wanted = record;
  if (options.decode && record.kind == LogRecordKind::message) wanted.message = withoutPercentEscapes(record.message);
  return wanted;
}

}  // namespace tovanctl
