#include "tools/tovanctl/log_show.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <vector>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/log_moment.h"
#include "tools/tovanctl/log_output.h"
#include "tools/tovanctl/log_reader.h"
#include "tools/tovanctl/log_scopes.h"
#include "tools/tovanctl/log_source.h"
#include "tools/tovanctl/log_text.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

constexpr std::size_t kPiece = std::size_t{256} << 10U;

std::string compact(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

class Show {
 public:
  Show(const LogOptions& options, std::string path)
      : options_(options),
        path_(std::move(path)),
        colour_(wantsColour()),
        reader_([this](const LogRecord& record) { take(record); },
                [this](const LogDamage& damage) { damages_.add(damage); }) {}

  void run(const LogFile& file) {
    if (options_.json) {
      print("{\"schema\": " + std::to_string(kSchema) + ", \"path\": " + compact(path_) + ", \"records\": [");
    }
    readAll(file);
    if (options_.json) {
      print((count_ > 0 ? "\n], " : "], ") + (options_.marks ? "\"underWay\": " + compact(underWay()) + ", " : "") +
            "\"unreadable\": " + compact(damages_.json()) + "}\n");
    } else if (options_.marks) {
      printUnderWay();
    }
    finishOutput();
    damages_.report(path_);
  }

 private:
  void readAll(const LogFile& file) {
    std::vector<char> piece(kPiece);
    for (;;) {
      const ssize_t count = ::read(file.descriptor(), piece.data(), piece.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) throw CommandError(kFailed, "cannot read " + path_ + ": " + std::strerror(errno));
      if (count == 0) return reader_.finish();
      reader_.feed({piece.data(), static_cast<std::size_t>(count)});
    }
  }

  // The operations are followed through all records, whichever are shown.
  void take(const LogRecord& record) {
    const LogPlace place = options_.marks ? scopes_.place(record) : LogPlace();
    const LogPlace* const shownPlace = options_.marks ? &place : nullptr;
    if (!options_.decode) return show(record, shownPlace);
    show(asWanted(record, options_), shownPlace);
  }

  void show(const LogRecord& record, const LogPlace* place) {
    if (!options_.filter.takes(record)) return;
    ++count_;
    if (place != nullptr && record.pid && shown_.size() < LogScopes::kMostProcesses) shown_.insert(*record.pid);
    if (!options_.json) return print(logRecordText(record, place, colour_));
    print((count_ > 1 ? ",\n" : "\n") + compact(logRecordJson(record, place)));
  }

  // Of the processes that are shown.
  Json underWay() const {
    Json list = Json::array();
    for (const auto& [pid, scopes] : scopes_.underWay()) {
      if (shown_.count(pid) == 0) continue;
      for (const LogScopes::Scope& scope : scopes) {
        list.push_back({{"pid", pid}, {"what", scope.what}, {"since", logMomentUniversal(scope.begin)}});
      }
    }
    return list;
  }

  void printUnderWay() const {
    for (const auto& [pid, scopes] : scopes_.underWay()) {
      if (shown_.count(pid) == 0) continue;
      std::string line = "process " + std::to_string(pid) + " has no end of";
      for (const LogScopes::Scope& scope : scopes) {
        line += (&scope == &scopes.front() ? " " : ", ") + scope.what + " (since " + logMomentText(scope.begin) + ")";
      }
      print(harmless(line) + "\n");
    }
  }

  const LogOptions& options_;
  const std::string path_;
  const bool colour_;
  LogReader reader_;
  LogScopes scopes_;
  LogDamages damages_;
  std::uint64_t count_ = 0;
  std::set<std::uint32_t> shown_;  // processes, for --marks
};

}  // namespace

void showLog(const LogOptions& options) {
  const LogSource source = sourceOf(options);
  const LogFile file = openLog(source);
  if (!file) {
    throw CommandError(kFailed, source.path + " does not exist" + (source.hint.empty() ? "" : "; " + source.hint));
  }
  Show(options, source.path == "-" ? "standard input" : source.path).run(file);
}

}  // namespace tovanctl
