#include "storage/dn_shared_storage_wait.h"

#include <algorithm>
#include <chrono>

namespace tovan {

using plinth::CAutoMutex;
using plinth::CSharedCFRef;
using plinth::CStringRef;

namespace {

constexpr double kTurn = 0.01;  // seconds

long wholeSeconds() {
  using std::chrono::duration_cast;
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<long>(duration_cast<std::chrono::seconds>(now).count());
}

CFRunLoopSourceRef newSource() {
  CFRunLoopSourceContext context{};
  return CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context);
}

}  // namespace

constinit thread_local CDNSharedStorageClient::Wait* CDNSharedStorageClient::Wait::innermost = nullptr;

CDNSharedStorageClient::Wait::Wait(CDNSharedStorageClient& client, const CStringRef& requestID)
    : client_(CDNSharedStorageClientRef::retaining(&client)),
      requestID_(requestID),
      loop_(CFRunLoopGetCurrent()),
      source_(newSource()),
      enclosing_(innermost) {
  CFRunLoopAddSource(loop_, source_.get(), kCFRunLoopDefaultMode);
  const CAutoMutex lock(client_->lock_);
  client_->waits_.push_back(this);
  innermost = this;
}

CDNSharedStorageClient::Wait::~Wait() {
  innermost = enclosing_;
  {
    const CAutoMutex lock(client_->lock_);
    std::erase(client_->waits_, this);
    CFDictionaryRemoveValue(client_->pendingRequests_.get(), requestID_->getStringRef());
    CFDictionaryRemoveValue(client_->replies_.get(), requestID_->getStringRef());
  }
  CFRunLoopSourceInvalidate(source_.get());
  if (enclosing_ != nullptr) CFRunLoopSourceSignal(enclosing_->source_.get());
  if (wasStopped_) CFRunLoopStop(loop_);
}

bool CDNSharedStorageClient::Wait::isFor(CFStringRef requestID) const {
  return CFEqual(requestID_->getStringRef(), requestID);
}

void CDNSharedStorageClient::Wait::wake() const {
  CFRunLoopSourceSignal(source_.get());
  if (loop_ != CFRunLoopGetCurrent()) CFRunLoopWakeUp(loop_);
}

CSharedCFRef<CFDictionaryRef> CDNSharedStorageClient::Wait::reply(long timeout) {
  const long start = wholeSeconds();
  CSharedCFRef<CFDictionaryRef> reply;
  while (!takeReply(reply) && wholeSeconds() - start < timeout) turnRunLoop();
  return reply;
}

// Whether there is nothing to wait for any more: the reply is there, or the request is over.
bool CDNSharedStorageClient::Wait::takeReply(CSharedCFRef<CFDictionaryRef>& reply) {
  const CFStringRef requestID = requestID_->getStringRef();
  const CAutoMutex lock(client_->lock_);
  const void* const found = CFDictionaryGetValue(client_->replies_.get(), requestID);
  if (found == nullptr) return !CFDictionaryContainsKey(client_->pendingRequests_.get(), requestID);
  reply = CSharedCFRef<CFDictionaryRef>::retaining(static_cast<CFDictionaryRef>(found));
  CFDictionaryRemoveValue(client_->replies_.get(), requestID);
  return true;
}

// A stop ends the run that it finds innermost, which is ours. It was meant for the one around us.
void CDNSharedStorageClient::Wait::turnRunLoop() {
  if (CFRunLoopRunInMode(kCFRunLoopDefaultMode, kTurn, true) == kCFRunLoopRunStopped) wasStopped_ = true;
}

}  // namespace tovan
