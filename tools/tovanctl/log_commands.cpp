// `tovanctl log show`, `log follow`, `log level` and `log path`.
#include <filesystem>
#include <limits>
#include <memory>
#include <string>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/log_follow.h"
#include "tools/tovanctl/log_level.h"
#include "tools/tovanctl/log_options.h"
#include "tools/tovanctl/log_show.h"
#include "tools/tovanctl/log_source.h"
#include "tools/tovanctl/output.h"

namespace tovanctl {
namespace {

constexpr std::int64_t kMostLevel = std::numeric_limits<std::int32_t>::max();

struct Arguments {
  LogOptions options;
  std::int64_t level = 0;
  std::string since;
  std::string until;
  std::string pattern;
  bool reset = false;
};

using Shared = std::shared_ptr<Arguments>;

// Ready to be used once the command line is read.
const LogOptions& completed(Arguments& arguments, const CLI::App& command) {
  LogOptions& options = arguments.options;
  const auto isGiven = [&command](const char* name) {
    const CLI::Option* const option = command.get_option_no_throw(name);
    return option != nullptr && option->count() > 0;
  };
  const LogMoment now = logNow();
  options.hasInstance = isGiven("--instance");
  if (isGiven("--level")) options.filter.level = static_cast<std::uint32_t>(arguments.level);
  if (isGiven("--since")) options.filter.since = parseLogMoment("--since", arguments.since, now);
  if (isGiven("--until")) options.filter.until = parseLogMoment("--until", arguments.until, now);
  if (isGiven("--grep")) options.filter.pattern = LogPattern("--grep", arguments.pattern);
  if (options.filter.since && options.filter.until && *options.filter.until < *options.filter.since) {
    throw CommandError(kUsage, "--until is before --since");
  }
  return options;
}

void addReadingOptions(CLI::App& command, Arguments& arguments) {
  LogOptions& options = arguments.options;
  command.add_option("SERVICE", options.service, "The service's name, or mervaned for the daemon");
  command.add_option("--instance", options.instance, "The instance, counted from 0");
  command.add_option("--file", options.file, "Read this file instead of a service's log");
  command.add_option("--level", arguments.level, "Messages of this level and those below it only")
      ->check(CLI::Range(std::int64_t{0}, std::int64_t{std::numeric_limits<std::uint32_t>::max()}));
  command.add_option("--grep", arguments.pattern,
                     "Records with text that this regular expression (POSIX, extended) fits");
  command.add_flag("--decode", options.decode, "Resolve percent escapes in messages, whoever wrote them");
}

void addShow(CLI::App& log) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* const command = log.add_subcommand("show", "The records of a log");
  addReadingOptions(*command, *arguments);
  command->add_option("--since", arguments->since,
                      "Records from then on: \"2026-11-21\", \"2026-11-21 14:05[:09]\", \"14:05[:09]\" today, or -10m, "
                      "-2h, -1d ago");
  command->add_option("--until", arguments->until, "Records up to then, in the same forms");
  command->add_flag("--marks", arguments->options.marks, "Operations as an indented tree, with how long they took");
  command->add_flag("--json", arguments->options.json, "One JSON document");
  command->callback([arguments, command] { showLog(completed(*arguments, *command)); });
}

void addFollow(CLI::App& log) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* const command = log.add_subcommand("follow", "The last records of a log, and each new one until Ctrl-C");
  addReadingOptions(*command, *arguments);
  command->add_option("--last", arguments->options.last, "So many records from before")
      ->check(CLI::Range(0U, 100000U))
      ->capture_default_str();
  command->add_flag("--json", arguments->options.json, "One JSON document a line");
  command->callback([arguments, command] { followLog(completed(*arguments, *command)); });
}

void addLevel(CLI::App& log) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* const command = log.add_subcommand("level", "A service's log level: shows it, or sets it for this user");
  command->add_option("SERVICE", arguments->options.service, "The service's name")->required();
  CLI::Option* const level =
      command->add_option("LEVEL", arguments->level, "The level; running processes take it at once");
  level->check(CLI::Range(std::int64_t{0}, kMostLevel));
  command->add_flag("--reset", arguments->reset, "Back to the service's own level")->excludes(level);
  command->add_flag("--json", arguments->options.json, "One JSON document; when the level is shown");
  command->callback([arguments, level] {
    const std::string& service = arguments->options.service;
    if (arguments->reset) return changeLogLevel(service, std::nullopt);
    if (level->count() > 0) return changeLogLevel(service, static_cast<std::int32_t>(arguments->level));
    showLogLevel(service, arguments->options.json);
  });
}

void addPath(CLI::App& log) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* const command = log.add_subcommand("path", "Where a service's log lies, or will lie");
  command->add_option("SERVICE", arguments->options.service, "The service's name, or mervaned")->required();
  command->add_option("--instance", arguments->options.instance, "The instance, counted from 0");
  command->add_flag("--json", arguments->options.json, "One JSON document");
  command->callback([arguments] {
    const LogOptions& options = arguments->options;
    const std::string path = logOfService(options.service, options.instance).path;
    if (!options.json) return print(path + "\n");
    printJson({{"service", options.service},
               {"instance", options.instance},
               {"path", path},
               {"exists", std::filesystem::exists(path)}});
  });
}

}  // namespace

void addLogCommands(CLI::App& app) {
  CLI::App& log = *app.add_subcommand("log", "Read and follow the logs of processes, and set how much they say");
  log.require_subcommand(1);
  addShow(log);
  addFollow(log);
  addLevel(log);
  addPath(log);
}

}  // namespace tovanctl
