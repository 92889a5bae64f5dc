#include "tools/tovanctl/log_scopes.h"

#include <algorithm>

namespace tovanctl {

LogPlace LogScopes::place(const LogRecord& record) {
  if (record.kind == LogRecordKind::mark && record.markKind == "begin") return begin(record);
  if (record.kind == LogRecordKind::mark && record.markKind == "end") return end(record);
  LogPlace place;
  const auto found = record.pid ? scopes_.find(*record.pid) : scopes_.end();
  if (found != scopes_.end()) place.depth = found->second.size();
  return place;
}

LogPlace LogScopes::begin(const LogRecord& record) {
  LogPlace place;
  auto found = scopes_.find(*record.pid);
  if (found == scopes_.end()) {
    if (scopes_.size() == kMostProcesses) return place;
    found = scopes_.emplace(*record.pid, std::vector<Scope>()).first;
  }
  std::vector<Scope>& scopes = found->second;
  if (record.what == "log-session") {
    place.endsLostSession = !scopes.empty();
    scopes.clear();
  }
  place.depth = scopes.size();
  if (scopes.size() < kMostScopes) scopes.push_back({record.what, *record.time});
  return place;
}

LogPlace LogScopes::end(const LogRecord& record) {
  LogPlace place;
  const auto found = scopes_.find(*record.pid);
  if (found == scopes_.end()) return place;
  std::vector<Scope>& scopes = found->second;
  place.depth = scopes.size();
  const auto scope =
      std::find_if(scopes.rbegin(), scopes.rend(), [&record](const Scope& one) { return one.what == record.what; });
  if (scope == scopes.rend()) return place;
  place.depth = static_cast<std::size_t>(scopes.rend() - scope) - 1;
  place.duration = *record.time - scope->begin;
  scopes.erase(std::next(scope).base());
  if (scopes.empty()) scopes_.erase(found);
  return place;
}

}  // namespace tovanctl
