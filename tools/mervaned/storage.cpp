#include "tools/mervaned/storage.h"

#include <CoreFoundation/CoreFoundation.h>
#include <plinth/exception.h>
#include <tovan/cf_util.h>
#include <tovan/constants.h>
#include <tovan/file_util.h>
#include <tovan/nfs_shared_storage.h>
#include <tovan/notifications.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <future>
#include <map>
#include <string>

#include "tools/mervaned/children.h"
#include "tools/mervaned/storage_listing.h"
#include "tools/mervaned/storage_sides.h"
#include "tools/support/process_log.h"
#include "tools/support/storage_contract.h"
#include "tools/support/text.h"

namespace mervaned {

namespace contract = tools::storage_contract;
using plinth::CSharedCFRef;
using tools::report;
using tools::textOf;
using tovan::CFUtil;
using tovan::CNFSSharedStorage;

namespace {

std::string exportsPath() {
  const CSharedCFRef<CFStringRef> path(
      TovanExpandTildeInPath(tovan::TovanCorePrivate::kTovanClusterStorageExportsFilePath));
  return textOf(path.get());
}

// Posts the members as the reply to a request. A request that does not say who sent it, and which it is, gets none.
void answer(CFStringRef replyName, CFDictionaryRef request, CFMutableDictionaryRef members, std::int32_t result = 0) {
  CFStringRef sender = nullptr;
  CFStringRef requestID = nullptr;
  if (!CFUtil::CFDictGetString(request, contract::sender(), sender) ||
      !CFUtil::CFDictGetString(request, contract::requestID(), requestID)) {
    return report(tools::kLogWarning, "a request about the storage without its sender or its number: ignored");
  }
  CFUtil::CFDictSetString(members, contract::sender(), sender);
  CFUtil::CFDictSetString(members, contract::requestID(), requestID);
  CFUtil::CFDictSetInt(members, contract::result(), result);
  sendNotification(replyName, sender, members);
}

// What can fail at the end fails for itself, and keeps nothing else from being taken down.
template <class Action>
void tryTo(const std::string& what, const Action& action) {
  try {
    action();
  } catch (const std::exception& failure) {
    report(tools::kLogFailure, "cannot " + what + ": " + failure.what());
  }
}

CSharedCFRef<CFRunLoopTimerRef> timerOf(double period, void (*fired)(CFRunLoopTimerRef, void*), void* info) {
  CFRunLoopTimerContext context{};
  context.info = info;
  return CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + period, period, 0, 0, fired, &context);
}

}  // namespace

class Storage::Work {
 public:
  explicit Work(const Options& options) : options_(options) {
    CFRunLoopSourceContext context{};
    context.info = this;
    context.perform = endRequested;
    endSource_ = CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context);
  }

  // The thread.
  void run(std::promise<void> ready);

  // From other threads.
  void requestEnd(Ending how) {
    ending_ = how;
    CFRunLoopSourceSignal(endSource_.get());
    CFRunLoopWakeUp(loop_);
  }
  void close(Gate gate) {
    for (Gate now = watch_.gate; now < gate && !watch_.gate.compare_exchange_weak(now, gate);) {
    }
  }
  bool isOver() const noexcept { return isOver_; }
  const StorageActivity& activity() const noexcept { return watch_.activity; }

 private:
  static void listRequested(CFNotificationCenterRef center, void* work, CFStringRef name, const void* object,
                            CFDictionaryRef userInfo);
  static void holderCheckDue(CFRunLoopTimerRef timer, void* work);
  static void endRequested(void* work);
  void checkHolders();
  void takeDown();

  const Options options_;
  StorageWatch watch_;
  std::atomic<Ending> ending_ = Ending::keep;
  std::atomic<bool> isOver_ = false;
  CFRunLoopRef loop_ = nullptr;  // of the thread
  CSharedCFRef<CFRunLoopSourceRef> endSource_;

  // The thread's own.
  plinth::CSharedObjectRef<Publisher> publisher_;
  plinth::CSharedObjectRef<Subscriber> subscriber_;
  tovan::ISharedStorageRef server_;
};

void Storage::Work::run(std::promise<void> ready) {
  loop_ = CFRunLoopGetCurrent();
  CFRunLoopAddSource(loop_, endSource_.get(), kCFRunLoopCommonModes);
  tryTo("offer shared storage", [this] {
    publisher_ = plinth::makeShared<Publisher>(exportsPath(), watch_);
    subscriber_ = plinth::makeShared<Subscriber>(watch_);
    server_ = CNFSSharedStorage::NewServer(publisher_, subscriber_, CNFSSharedStorage::kNotificationRPC);
    registerForNotification(this, listRequested, contract::listRequest(), nullptr);
  });
  const CSharedCFRef<CFRunLoopTimerRef> timer = timerOf(options_.clientCheck, holderCheckDue, this);
  if (server_) CFRunLoopAddTimer(loop_, timer.get(), kCFRunLoopCommonModes);
  ready.set_value();
  CFRunLoopRun();
  CFRunLoopTimerInvalidate(timer.get());
  unregisterForNotifications(this);
  server_ = nullptr;
  subscriber_ = nullptr;
  publisher_ = nullptr;
  isOver_ = true;
}

void Storage::Work::listRequested(CFNotificationCenterRef, void* work, CFStringRef, const void*,
                                  CFDictionaryRef userInfo) {
  auto& self = *static_cast<Work*>(work);
  try {
    answer(contract::listReply(), userInfo,
           storageListing(*self.publisher_, *self.subscriber_, self.watch_.holders).get());
  } catch (const std::exception& failure) {
    report(tools::kLogFailure, std::string("cannot list the storage: ") + failure.what());
    const CSharedCFRef<CFMutableDictionaryRef> members(CFUtil::CFDictMakeMutable());
    CFUtil::CFDictSetString(members.get(), contract::problem(), tools::stringOf(failure.what()).get());
    answer(contract::listReply(), userInfo, members.get(), -1);
  }
}

void Storage::Work::holderCheckDue(CFRunLoopTimerRef, void* work) {
  tryTo("look at who holds storage", [work] { static_cast<Work*>(work)->checkHolders(); });
}

// The library keeps what a process that is gone held, as long as its client holds anything.
void Storage::Work::checkHolders() {
  const std::set<std::int32_t> pids = holdersOfAll(*publisher_, *subscriber_);
  for (const std::int32_t pid : watch_.holders.newlyGone(pids)) {
    report(tools::kLogWarning,
           "process " + std::to_string(pid) + " is gone and holds " + holdingsOf(pid, *publisher_, *subscriber_));
    server_->processTerminated(pid);
  }
}

void Storage::Work::endRequested(void* work) {
  auto& self = *static_cast<Work*>(work);
  if (self.ending_ == Ending::takeDown && self.server_) self.takeDown();
  CFRunLoopStop(CFRunLoopGetCurrent());
}

// The exports first: nothing in the way of an unmount keeps the folders of this host open to others.
void Storage::Work::takeDown() {
  const tools::LogScope scope("take-down-storage");
  tryTo("take the exports out", [this] { publisher_->cleanExports(); });
  tryTo("unmount everything", [this] { subscriber_->cleanMounts(); });
  const std::map<std::string, std::string> left = subscriber_->leftOvers();
  for (auto one = left.rbegin(); one != left.rend(); ++one) {  // a path comes after the folders it lies in
    tryTo("unmount " + one->first, [&] { subscriber_->_unsubscribe(plinth::CURLRef(), plinth::CSTR(one->first)); });
  }
}

Storage::Storage(const Options& options) : work_(std::make_shared<Work>(options)) {
  std::promise<void> ready;
  std::future<void> isReady = ready.get_future();
  thread_ = std::thread([work = work_, promise = std::move(ready)]() mutable { work->run(std::move(promise)); });
  isReady.wait();
  registerForNotification(this, activityRequested, contract::activityRequest(), nullptr);
}

Storage::~Storage() {
  unregisterForNotifications(this);
  if (isGivenUp_ && !isOver()) {
    thread_.detach();
  } else {
    if (!isOver()) end(Ending::keep);
    thread_.join();
  }
}

void Storage::refuseMounts() {
  work_->close(Gate::closedToMounts);
  endChildrenNamed({"mount"});
}

void Storage::end(Ending how) { work_->requestEnd(how); }

bool Storage::isOver() const noexcept { return work_->isOver(); }

void Storage::giveUp() {
  isGivenUp_ = true;
  work_->close(Gate::closed);
  endChildrenNamed({"mount", "umount"});
}

void Storage::activityRequested(CFNotificationCenterRef, void* storage, CFStringRef, const void*,
                                CFDictionaryRef userInfo) {
  tryTo("say what the storage does", [storage, userInfo] {
    const CSharedCFRef<CFMutableDictionaryRef> members(CFUtil::CFDictMakeMutable());
    if (const auto activity = static_cast<Storage*>(storage)->work_->activity().now()) {
      CFUtil::CFDictSetString(members.get(), contract::operation(), tools::stringOf(activity->operation).get());
      CFUtil::CFDictSetDouble(members.get(), contract::seconds(), activity->seconds);
    }
    answer(contract::activityReply(), userInfo, members.get());
  });
}

}  // namespace mervaned
