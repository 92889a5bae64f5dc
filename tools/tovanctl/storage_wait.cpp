#include "tools/tovanctl/storage_wait.h"

#include <fmt/format.h>
#include <plinth/uuid_string.h>
#include <tovan/cf_util.h>
#include <tovan/notifications.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "tools/support/storage_contract.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/interrupt.h"
#include "tools/tovanctl/table.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {

namespace contract = tools::storage_contract;
using plinth::CSharedCFRef;
using tovan::CFUtil;

namespace {

constexpr double kLook = 0.1;  // seconds between two looks at the daemon and for Ctrl-C

std::string freshID() { return plinth::makeShared<plinth::CUUIDString>()->str(); }

void showOnTerminal(const std::string& line) {
  const std::string out = "\r\x1b[K" + line;
  std::fwrite(out.data(), 1, out.size(), stderr);
  std::fflush(stderr);
}

}  // namespace

StorageWait::StorageWait(std::string what, const ProcessHold& daemon)
    : what_(std::move(what)), daemon_(daemon), began_(std::chrono::steady_clock::now()), id_(freshID()) {
  registerForNotification(this, activityArrived, contract::activityReply(), string(id_).get());
  CFRunLoopTimerContext context{};
  context.info = this;
  timer_ =
      CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + kLook, kLook, 0, 0, lookDue, &context);
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer_.get(), kCFRunLoopCommonModes);
}

StorageWait::~StorageWait() {
  CFRunLoopTimerInvalidate(timer_.get());
  unregisterForNotifications(this);
  if (secondsShown_ > 0 && ::isatty(STDERR_FILENO) != 0) showOnTerminal("");
}

double StorageWait::elapsed() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - began_).count();
}

void StorageWait::lookDue(CFRunLoopTimerRef, void* wait) { static_cast<StorageWait*>(wait)->look(); }

void StorageWait::look() {
  if (wasInterrupted()) throw CommandError(kFailed, "interrupted while " + what_ + "; the daemon goes on with it");
  if (daemon_.awaitEnd(deadlineIn(0))) throw CommandError(kNoDaemon, "the daemon ended while " + what_);
  const int seconds = static_cast<int>(elapsed());
  if (seconds <= secondsShown_) return;
  secondsShown_ = seconds;
  ask();
  show();
}

void StorageWait::ask() {
  const CSharedCFRef<CFMutableDictionaryRef> question(CFUtil::CFDictMakeMutable());
  const CSharedCFRef<CFStringRef> id = string(id_);
  CFUtil::CFDictSetString(question.get(), contract::sender(), id.get());
  CFUtil::CFDictSetString(question.get(), contract::requestID(), id.get());
  sendNotification(contract::activityRequest(), id.get(), question.get());
}

void StorageWait::activityArrived(CFNotificationCenterRef, void* wait, CFStringRef, const void*,
                                  CFDictionaryRef userInfo) {
  auto& self = *static_cast<StorageWait*>(wait);
  CFStringRef operation = nullptr;
  CFUtil::CFDictGetString(userInfo, contract::operation(), operation);
  self.operation_ = text(operation);
  CFUtil::CFDictGetDouble(userInfo, contract::seconds(), self.operationSeconds_);
  if (self.secondsShown_ > 0) self.show();
}

std::string StorageWait::activityText() const {
  if (operation_.empty()) return {};
  return fmt::format("; the daemon has been {} for {:.0f} s", onOneLine(operation_), operationSeconds_);
}

void StorageWait::show() {
  if (::isatty(STDERR_FILENO) == 0) return;
  showOnTerminal(fmt::format("{}, {} s{}", onOneLine(what_), secondsShown_, activityText()));
}

void StorageWait::fail(double timeout) const {
  throw CommandError(kTimedOut, fmt::format("no answer within {} s while {}{}", timeout, what_, activityText()));
}

}  // namespace tovanctl
