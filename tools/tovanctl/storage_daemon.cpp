#include "tools/tovanctl/storage_daemon.h"

#include <plinth/exception.h>
#include <plinth/url.h>
#include <plinth/uuid_string.h>
#include <tovan/cf_util.h>
#include <tovan/notifications.h>
#include <tovan/shared_storage_exception.h>

#include <cmath>
#include <optional>

#include "tools/support/storage_contract.h"
#include "tools/tovanctl/daemon.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/storage_wait.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {

namespace contract = tools::storage_contract;
using plinth::CSharedCFRef;
using plinth::CSTR;
using plinth::CStringRef;
using plinth::CURL;
using plinth::CURLRef;
using tovan::CFUtil;
using tovan::ISharedStorageException;

namespace {

constexpr double kSlice = 0.1;  // seconds of a turn of the run loop

ProcessHold holdOfDaemon() {
  const DaemonState daemon = lookAtDaemon();
  ProcessHold hold(daemon.process ? daemon.process->pid : 0);
  if (!daemon.running || !hold) throw CommandError(kNoDaemon, "the daemon does not run; `tovanctl up` starts it");
  return hold;
}

CURLRef folderURL(const std::string& path) {
  return plinth::makeShared<CURL>(CSTR(string(path).get()), kCFURLPOSIXPathStyle, true);
}

CURLRef remoteURL(const std::string& text) {
  const CSharedCFRef<CFURLRef> url(CFURLCreateWithString(kCFAllocatorDefault, string(text).get(), nullptr));
  if (!url) throw CommandError(kUsage, "not a URL: " + text);
  return plinth::makeShared<CURL>(url.get());
}

ExitCode exitCodeOf(const plinth::CException& failure) {
  const auto number = static_cast<std::uint32_t>(failure.getKind());
  const bool isUnknown =
      number == ISharedStorageException::numberOf(tovan::kSharedStorageExceptionStorage, tovan::kSharedStorageNotFound);
  return isUnknown ? kUnknownName : kFailed;
}

// Keeps the reply to one listing request.
class ListRequest {
 public:
  ListRequest() : id_(string(plinth::makeShared<plinth::CUUIDString>()->str())) {
    registerForNotification(this, arrived, contract::listReply(), id_.get());
    const CSharedCFRef<CFMutableDictionaryRef> question(CFUtil::CFDictMakeMutable());
    CFUtil::CFDictSetString(question.get(), contract::sender(), id_.get());
    CFUtil::CFDictSetString(question.get(), contract::requestID(), id_.get());
    sendNotification(contract::listRequest(), id_.get(), question.get());
  }
  ~ListRequest() { unregisterForNotifications(this); }
  ListRequest(const ListRequest&) = delete;
  ListRequest& operator=(const ListRequest&) = delete;

  const std::optional<StorageListing>& reply() const { return reply_; }

 private:
  static void arrived(CFNotificationCenterRef, void* request, CFStringRef, const void*, CFDictionaryRef userInfo) {
    auto& self = *static_cast<ListRequest*>(request);
    std::int32_t result = 0;
    CFStringRef problem = nullptr;
    CFUtil::CFDictGetInt(userInfo, contract::result(), result);
    if (result != 0) CFUtil::CFDictGetString(userInfo, contract::problem(), problem);
    if (result != 0) throw CommandError(kFailed, "the daemon cannot list its storage: " + text(problem));
    self.reply_ = readStorageListing(userInfo);
  }

  const CSharedCFRef<CFStringRef> id_;
  std::optional<StorageListing> reply_;
};

}  // namespace

StorageDaemon::StorageDaemon(double timeout)
    : timeout_(timeout), process_(holdOfDaemon()), client_(plinth::makeShared<tovan::CDNSharedStorageClient>()) {}

void StorageDaemon::publish(const std::string& path, const StorageHolder& holder) {
  await("publishing " + path, client_->asyncPublish(folderURL(path), CSTR(string(holder.client).get()), holder.pid));
}

void StorageDaemon::unpublish(const std::string& path, const StorageHolder& holder) {
  await("unpublishing " + path,
        client_->asyncUnpublish(folderURL(path), CSTR(string(holder.client).get()), holder.pid));
}

void StorageDaemon::mount(const std::string& url, const std::string& path, const StorageHolder& holder) {
  await("mounting " + url + " on " + path, client_->asyncSubscribe(remoteURL(url), CSTR(string(path).get()),
                                                                   CSTR(string(holder.client).get()), holder.pid));
}

void StorageDaemon::unmount(const std::string& url, const std::string& path, const StorageHolder& holder) {
  await("unmounting " + path, client_->asyncUnsubscribe(remoteURL(url), CSTR(string(path).get()),
                                                        CSTR(string(holder.client).get()), holder.pid));
}

void StorageDaemon::await(const std::string& what, const CStringRef& requestID) {
  const StorageWait wait(what, process_);
  bool isAnswered = false;
  try {
    isAnswered = client_->asyncWaitForReply(requestID, std::lround(std::ceil(timeout_)));
  } catch (const plinth::CException& failure) {
    throw CommandError(exitCodeOf(failure), "failed while " + what + ": " + failure.what());
  }
  if (!isAnswered) wait.fail(timeout_);
}

StorageListing StorageDaemon::list() {
  const StorageWait wait("listing the storage", process_);
  const ListRequest request;
  for (const Deadline deadline = deadlineIn(timeout_); !request.reply() && !isOver(deadline);) {
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, kSlice, TRUE);
  }
  if (!request.reply()) wait.fail(timeout_);
  return *request.reply();
}

}  // namespace tovanctl
