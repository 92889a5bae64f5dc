#include "tools/tovanctl/log_follow.h"

#include <deque>
#include <filesystem>
#include <string>
#include <utility>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/followed_file.h"
#include "tools/tovanctl/interrupt.h"
#include "tools/tovanctl/log_output.h"
#include "tools/tovanctl/log_reader.h"
#include "tools/tovanctl/log_text.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

class Follow {
 public:
  Follow(const LogOptions& options, const LogSource& source)
      : options_(options),
        path_(source.path),
        hint_(source.hint),
        colour_(wantsColour()),
        reader_([this](const LogRecord& record) { take(record); }, [this](const LogDamage& damage) { take(damage); }),
        file_(
            source, [this](std::string_view bytes) { reader_.feed(bytes); },
            [this](FollowedFile::Event event) { take(event); }) {}

  void run() {
    catchInterrupts();
    FolderWatch watch(std::filesystem::path(path_).parent_path().string());
    file_.look();
    for (const LogRecord& record : last_) show(record);
    last_.clear();
    if (std::exchange(isCatchingUp_, false)) say("is followed; Ctrl-C ends");
    while (!wasInterrupted()) {
      finishOutput();
      watch.wait();
      file_.look();
    }
    finishOutput();
    damages_.report(path_);
  }

 private:
  void take(const LogRecord& record) {
    LogRecord wanted = asWanted(record, options_);
    if (!options_.filter.takes(wanted)) return;
    if (!isCatchingUp_) return show(wanted);
    last_.push_back(std::move(wanted));
    if (last_.size() > options_.last) last_.pop_front();
  }

  void show(const LogRecord& record) {
    if (options_.json) return printJsonLine(logRecordJson(record, nullptr));
    print(logRecordText(record, nullptr, colour_));
  }

  // Those from before are told at the end; of those to come the first ones at once.
  void take(const LogDamage& damage) {
    if (damages_.add(damage) && !isCatchingUp_) say("cannot be read: " + damageText(damage));
  }

  void take(FollowedFile::Event event) {
    switch (event) {
      case FollowedFile::Event::missing:
        isCatchingUp_ = false;  // what comes from here on is new
        return say("is not there: waiting for it" + (hint_.empty() ? "" : " (" + hint_ + ")") + "; Ctrl-C ends");
      case FollowedFile::Event::found:
        reader_.finish();
        return say("is there now");
      case FollowedFile::Event::truncated:
        reader_.finish();
        return say("was emptied: reading it from its beginning");
      case FollowedFile::Event::replaced:
        reader_.finish();
        return say("was replaced: reading the new one");
    }
  }

  // Behind what was printed so far.
  void say(const std::string& what) const {
    finishOutput();
    message(path_ + " " + what);
  }

  const LogOptions& options_;
  const std::string path_;
  const std::string hint_;
  const bool colour_;
  LogReader reader_;
  FollowedFile file_;
  LogDamages damages_;
  std::deque<LogRecord> last_;
  bool isCatchingUp_ = true;
};

}  // namespace

void followLog(const LogOptions& options) {
  LogSource source = sourceOf(options);
  if (source.path == "-") throw CommandError(kUsage, "--file: standard input cannot be followed; `log show` reads it");
  source.isNamed = false;  // a pipe has no end to wait behind
  Follow(options, source).run();
}

}  // namespace tovanctl
