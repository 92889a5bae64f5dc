#include "tools/mervaned/daemon.h"

#include <CoreFoundation/CFNumber.h>
#include <plinth/exception.h>
#include <tovan/cf_util.h>
#include <tovan/constants.h>
#include <tovan/notifications.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <vector>

#include "tools/mervaned/installed_services.h"
#include "tools/support/pid_registration.h"
#include "tools/support/process_log.h"
#include "tools/support/text.h"

namespace mervaned {

using namespace tovan::TovanCorePrivate;   // the keys
using namespace tovan::TovanNotification;  // the names
using plinth::CSharedCFRef;
using tools::LogScope;
using tools::report;
using tools::textOf;
using tovan::CFUtil;
using tovan::CServiceCacheEntry;

namespace {

// Seconds between two looks whether the storage is over, and for its commands to end that were told to.
constexpr double kLookAtStorage = 0.02;
constexpr double kLastOfStorage = 4;

// Who asks the daemon to restart.
CFStringRef restartSender() { return CFSTR("mervaneprefs"); }

CSharedCFRef<CFMutableDictionaryRef> selfDescription() {
  CSharedCFRef<CFMutableDictionaryRef> description(CFUtil::CFDictMakeMutable());
  CFUtil::CFDictSetString(description.get(), kDictKeyName, CFSTR("mervaned"));
  CFUtil::CFDictSetInt(description.get(), kDictKeyProcessID, ::getpid());
  CFUtil::CFDictSetInt(description.get(), kDictKeyUserID, static_cast<std::int32_t>(::geteuid()));
  return description;
}

bool isKind(CFTypeRef value, CFTypeID kind) { return value != nullptr && CFGetTypeID(value) == kind; }

bool isRestartWord(CFTypeRef value) { return isKind(value, CFStringGetTypeID()) && CFEqual(value, CFSTR("Restart")); }

}  // namespace

Daemon::Daemon(const Options& options)
    : options_(options),
      supervisor_(options,
                  [this] {
                    if (isEnding_) CFRunLoopStop(CFRunLoopGetCurrent());
                  }),
      signals_([this] { signalled(); }),
      storage_(options) {
  addPrefsPaneObserver(this, notified, kTovanPrefsChangedNotification);
  addPrefsPaneObserver(this, notified, kTovanDaemonRunningNotification);
  registerForNotification(this, notified, kTovanDaemonRestartNotification, restartSender());
  registerForNotification(this, notified, kTovanServiceRestartNotification, nullptr);
  registerForNotification(this, notified, kTovanTaskTerminatedNotification, nullptr);
  CFRunLoopTimerContext context{};
  context.info = this;
  clientTimer_ = CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent(), options.clientCheck, 0, 0,
                                      clientCheckDue, &context);
  CFRunLoopAddTimer(CFRunLoopGetCurrent(), clientTimer_.get(), kCFRunLoopCommonModes);
}

Daemon::~Daemon() {
  CFRunLoopTimerInvalidate(clientTimer_.get());
  unregisterForNotifications(this);
}

Daemon::End Daemon::run() {
  signalPrefsPane(kTovanDaemonStartedNotification, selfDescription().get());
  report(tools::kLogUsual, "started");
  try {
    syncAll();
  } catch (const plinth::CException& exception) {
    report(tools::kLogFailure, std::string("cannot read the services: ") + exception.what());
  }
  // A stop that comes while a callback is under way, such as the one of a signal, ends this run; one that comes earlier
  // is remembered in isEnding_.
  while (!isEnding_ || !supervisor_.isIdle()) CFRunLoopRun();
  endStorage();
  return end_;
}

void Daemon::notified(CFNotificationCenterRef, void* daemon, CFStringRef name, const void*, CFDictionaryRef userInfo) {
  try {
    static_cast<Daemon*>(daemon)->answer(name, userInfo);
  } catch (const std::exception& exception) {
    report(tools::kLogFailure, textOf(name) + " failed: " + exception.what());
  }
}

void Daemon::answer(CFStringRef name, CFDictionaryRef userInfo) {
  if (CFEqual(name, kTovanTaskTerminatedNotification)) return taskEnded(userInfo);
  if (isEnding_) return;
  if (CFEqual(name, kTovanDaemonRunningNotification)) {
    signalPrefsPane(kTovanDaemonRunningNotification, selfDescription().get());
  } else if (CFEqual(name, kTovanPrefsChangedNotification)) {
    preferencesChanged(userInfo);
  } else if (CFEqual(name, kTovanServiceRestartNotification)) {
    restartServicesOfKind(userInfo);
  } else if (CFEqual(name, kTovanDaemonRestartNotification)) {
    report(tools::kLogUsual, "asked to restart");
    end(End::restart, limitOf(userInfo));
  }
}

// ---- Services

void Daemon::preferencesChanged(CFDictionaryRef userInfo) {
  CFTypeRef value = nullptr;
  const bool hasList = CFUtil::CFDictGet(userInfo, kDictKeyServiceList, value);
  const LogScope scope("preferences-changed", hasList ? "a service list" : "all services");
  if (!hasList) return syncAll();
  if (!isKind(value, CFDictionaryGetTypeID()))
    return report(tools::kLogWarning, "a service list that is no dictionary: ignored");
  const auto list = static_cast<CFDictionaryRef>(value);
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(list));
  std::vector<CFTypeRef> names(count), wishes(count);
  CFDictionaryGetKeysAndValues(list, names.data(), wishes.data());
  for (std::size_t i = 0; i < count; ++i) {
    const std::string name = textOf(static_cast<CFStringRef>(names[i]));
    if (isKind(wishes[i], CFBooleanGetTypeID())) {
      syncService(name, CFBooleanGetValue(static_cast<CFBooleanRef>(wishes[i])) != 0);
    } else if (isRestartWord(wishes[i])) {
      restartService(name, options_.stopLimit);
    } else {
      report(tools::kLogWarning,
             "what is to become of the service " + name + " is neither a boolean nor \"Restart\": ignored");
    }
  }
}

void Daemon::syncAll() {
  const LogScope scope("sync-services");
  std::set<std::string> gone = supervisor_.services();
  for (const CServiceCacheEntry& entry : installedServices()) {
    if (!isDaemonService(entry)) continue;
    const std::string name = textOf(entry.name());
    gone.erase(name);
    if (entry.enabled) {
      supervisor_.start(name, instanceCount(entry));
    } else {
      supervisor_.stop(name, options_.stopLimit);
    }
  }
  for (const std::string& name : gone) supervisor_.stop(name, options_.stopLimit);
}

void Daemon::syncService(const std::string& name, bool enabled) {
  if (!enabled) return supervisor_.stop(name, options_.stopLimit);
  const auto entry = installedService(name);
  if (!entry) return report(tools::kLogWarning, "there is no service " + name + " to start");
  if (!isDaemonService(*entry)) return report(tools::kLogUsual, "the service " + name + " is started by launchd");
  supervisor_.start(name, instanceCount(*entry));
}

void Daemon::restartService(const std::string& name, double limit) {
  const auto entry = installedService(name);
  if (!entry) return report(tools::kLogWarning, "there is no service " + name + " to restart");
  if (!isDaemonService(*entry)) {
    report(tools::kLogUsual,
           "restarting " + name + ": " + std::to_string(endProcessesOf(*entry)) + " processes asked to end");
  } else if (entry->enabled || supervisor_.runs(name)) {
    report(tools::kLogUsual, "restarting " + name);
    supervisor_.restart(name, instanceCount(*entry), limit);
  } else {
    report(tools::kLogUsual, "the service " + name + " does not run, and is not restarted");
  }
}

void Daemon::restartServicesOfKind(CFDictionaryRef request) {
  CFStringRef type = nullptr;
  std::int32_t user = 0;
  if (!CFUtil::CFDictGetString(request, kDictKeyServiceType, type) ||
      !CFUtil::CFDictGetInt(request, kDictKeyUserID, user)) {
    return report(tools::kLogWarning, "a request to restart a service without its kind or its user: ignored");
  }
  if (static_cast<uid_t>(user) != ::geteuid()) return;
  const std::string kind = textOf(type);
  const LogScope scope("restart-services", kind);
  for (const CServiceCacheEntry& entry : installedServices()) {
    const std::string name = textOf(entry.name());
    if (name == kind || kindOf(entry) == kind) restartService(name, limitOf(request));
  }
}

void Daemon::taskEnded(CFDictionaryRef userInfo) {
  CFTypeRef value = nullptr;
  CFIndex address = 0;
  if (!CFUtil::CFDictGet(userInfo, kDictKeyTaskPtr, value) || !isKind(value, CFNumberGetTypeID())) return;
  if (!CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberCFIndexType, &address)) return;
  supervisor_.taskEnded(static_cast<std::uintptr_t>(address));
}

double Daemon::limitOf(CFDictionaryRef request) const {
  bool cancelsJobs = false;
  CFUtil::CFDictGetBoolean(request, kDictKeyCancelJobs, cancelsJobs);
  return cancelsJobs ? options_.cancelLimit : options_.stopLimit;
}

// ---- Clients

void Daemon::clientCheckDue(CFRunLoopTimerRef, void* daemon) { static_cast<Daemon*>(daemon)->checkClients(); }

void Daemon::checkClients() const {
  const LogScope scope("check-clients", "", tools::kLogDetail);
  try {
    const std::size_t gone = tools::removeGoneProcesses(CFSTR("mervaneclients"));
    if (gone > 0) report(tools::kLogUsual, "clients that are gone: " + std::to_string(gone));
  } catch (const plinth::CException& exception) {
    report(tools::kLogFailure, std::string("cannot look at the clients: ") + exception.what());
  }
}

// ---- The end

// A signal that comes while a restart ends the services is the first one all the same.
void Daemon::signalled() {
  report(tools::kLogUsual, isSignalled_ ? "asked to end again" : "asked to end");
  isHurried_ = isSignalled_;
  end(End::stop, isSignalled_ ? 0 : options_.stopLimit);
  isSignalled_ = true;
}

void Daemon::end(End how, double limit) {
  isEnding_ = true;
  end_ = how;
  if (!ending_) ending_.emplace("end-services", how == End::restart ? "restart" : "stop");
  supervisor_.stopAll(limit);
  storage_.refuseMounts();
  if (supervisor_.isIdle()) CFRunLoopStop(CFRunLoopGetCurrent());
}

// After the services, which may use what is mounted.
void Daemon::endStorage() {
  storage_.end(end_ == End::stop ? Storage::Ending::takeDown : Storage::Ending::keep);
  if (awaitStorage(options_.storageLimit, true)) return;
  report(tools::kLogWarning, "the storage does not end: given up");
  storage_.giveUp();
  if (!awaitStorage(kLastOfStorage, false)) report(tools::kLogFailure, "a storage command does not end: left behind");
}

// Signals are still answered: a second one cuts the wait short.
bool Daemon::awaitStorage(double seconds, bool mayBeCutShort) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!storage_.isOver() && !(mayBeCutShort && isHurried_) && std::chrono::steady_clock::now() < deadline) {
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, kLookAtStorage, true);
  }
  return storage_.isOver();
}

}  // namespace mervaned
