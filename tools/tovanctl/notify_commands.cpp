// `tovanctl notify post` and `notify watch`.
#include <CoreFoundation/CoreFoundation.h>
#include <fmt/format.h>
#include <plinth/interval_timer.h>
#include <tovan/notifications.h>

#include <cmath>
#include <ctime>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/interrupt.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/post_notification.h"
#include "tools/tovanctl/process.h"
#include "tools/tovanctl/table.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {
namespace {

using plinth::CSharedCFRef;

constexpr double kSlice = 0.1;  // seconds between two looks for Ctrl-C

struct Arguments {
  std::string name;
  std::string object;
  std::string information;
  bool json = false;
  unsigned int count = 0;
  double timeout = 0;
  bool hasObject = false;
  bool hasTimeout = false;
};

CSharedCFRef<CFStringRef> optionalString(bool given, const std::string& value) {
  return given ? string(value) : CSharedCFRef<CFStringRef>();
}

CSharedCFRef<CFDictionaryRef> userInfoOfJson(const std::string& given) {
  if (given.empty()) return {};
  Json parsed;
  try {
    parsed = Json::parse(given);
  } catch (const Json::exception& error) {
    // Behind the parser's own mark in brackets.
    const std::string reason = error.what();
    throw CommandError(kUsage, "--info is no JSON: " + reason.substr(reason.find(' ') + 1));
  }
  return propertyList(parsed);
}

void post(const Arguments& arguments) {
  const CSharedCFRef<CFStringRef> name = string(arguments.name);
  const CSharedCFRef<CFStringRef> object = optionalString(arguments.hasObject, arguments.object);
  postNotification(name.get(), object.get(), userInfoOfJson(arguments.information).get());
}

std::string clockTime() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  ::localtime_r(&now.tv_sec, &local);
  return fmt::format("{:02}:{:02}:{:02}.{:03}", local.tm_hour, local.tm_min, local.tm_sec, now.tv_nsec / 1000000);
}

class Watch {
 public:
  explicit Watch(const Arguments& arguments) : arguments_(arguments) {}
  ~Watch() { unregisterForNotifications(this); }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  void run() {
    catchInterrupts();
    const CSharedCFRef<CFStringRef> name = optionalString(!arguments_.name.empty(), arguments_.name);
    const CSharedCFRef<CFStringRef> object = optionalString(arguments_.hasObject, arguments_.object);
    registerForNotification(this, arrived, name.get(), object.get());
    message("watching " + (arguments_.name.empty() ? "every notification" : arguments_.name) + "; Ctrl-C ends");
    plinth::CIntervalTimer keepsLoopWaiting(1000, std::numeric_limits<double>::infinity());
    keepsLoopWaiting.start();
    const std::optional<Deadline> deadline =
        arguments_.hasTimeout ? std::optional<Deadline>(deadlineIn(arguments_.timeout)) : std::nullopt;
    while (!isDone() && !wasInterrupted() && !(deadline && isOver(*deadline))) {
      CFRunLoopRunInMode(kCFRunLoopDefaultMode, kSlice, TRUE);
    }
    if (!wasInterrupted() && arguments_.count > 0 && !isDone()) {
      throw CommandError(kTimedOut, fmt::format("{} of {} notifications arrived in {} s", seen_, arguments_.count,
                                                arguments_.timeout));
    }
  }

 private:
  static void arrived(CFNotificationCenterRef, void* observer, CFStringRef name, const void* object,
                      CFDictionaryRef userInfo) {
    static_cast<Watch*>(observer)->show(name, static_cast<CFStringRef>(object), userInfo);
  }

  bool isDone() const { return arguments_.count > 0 && seen_ >= arguments_.count; }

  void show(CFStringRef name, CFStringRef object, CFDictionaryRef userInfo) {
    if (isDone()) return;
    ++seen_;
    if (arguments_.json) {
      printJsonLine({{"name", text(name)}, {"object", json(object)}, {"userInfo", json(userInfo)}});
    } else {
      print(clockTime() + "  " + onOneLine(text(name)) + "  " + (object != nullptr ? onOneLine(text(object)) : "-") +
            (userInfo != nullptr ? "  " + json(userInfo).dump(-1, ' ', false, Json::error_handler_t::replace) : "") +
            "\n");
    }
    finishOutput();
  }

  const Arguments& arguments_;
  unsigned int seen_ = 0;
};

void addPost(CLI::App& notify, const std::shared_ptr<Arguments>& arguments) {
  CLI::App* const command = notify.add_subcommand("post", "Post a notification");
  command->add_option("NAME", arguments->name, "Its name")->required();
  CLI::Option* const object = command->add_option("--object", arguments->object, "Its object: who sends it");
  command->add_option("--info", arguments->information, "Its user info, a JSON object");
  command->callback([arguments, object] {
    arguments->hasObject = object->count() > 0;
    post(*arguments);
  });
}

void addWatch(CLI::App& notify, const std::shared_ptr<Arguments>& arguments) {
  CLI::App* const command = notify.add_subcommand("watch", "Show notifications as they arrive");
  command->add_option("NAME", arguments->name, "Those of this name; all when none is given");
  CLI::Option* const object = command->add_option("--object", arguments->object, "Those with this object only");
  command->add_flag("--json", arguments->json, "One JSON document a line");
  command->add_option("--count", arguments->count, "End after so many")->check(CLI::Range(1U, 4000000000U));
  CLI::Option* const timeout = command->add_option("--timeout", arguments->timeout, "End after so many seconds");
  timeout->check(CLI::Range(0.0, 86400.0));
  command->callback([arguments, object, timeout] {
    arguments->hasObject = object->count() > 0;
    arguments->hasTimeout = timeout->count() > 0;
    Watch(*arguments).run();
  });
}

}  // namespace

void addNotifyCommands(CLI::App& app) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App& notify = *app.add_subcommand("notify", "Post and watch the notifications of this user's processes");
  notify.require_subcommand(1);
  addPost(notify, arguments);
  addWatch(notify, arguments);
}

}  // namespace tovanctl
