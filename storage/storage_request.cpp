#include "storage/storage_request.h"

#include <plinth/exception.h>
#include <tovan/cf_util.h>
#include <tovan/shared_storage_exception.h>

#include <CoreFoundation/CFNumber.h>

#include <cstdint>
#include <exception>
#include <limits>

#include "storage/storage_protocol.h"

namespace tovan {

using plinth::CException;
using plinth::CSharedCFRef;
using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;
using plinth::CUnknownException;
using plinth::CURL;
using plinth::CURLRef;

namespace {

using Failure = std::optional<CException>;

bool isName(CFStringRef name, CFStringRef expected) { return name != nullptr && CFEqual(name, expected); }

[[noreturn]] void throwBadKey(const char* keyName) {
  throw ISharedStorageException(kSharedStorageExceptionExchange, kSharedStorageBadKey, keyName);
}

// The values of a request, read in the order in which they are checked.
class Request {
 public:
  explicit Request(CFDictionaryRef userInfo) : userInfo_(userInfo) {}

  void readAddress() {
    sender_ = CSharedCFRef<CFStringRef>::retaining(text(protocol::kSenderKey, "kSenderKey"));
    requestID_ = CSharedCFRef<CFStringRef>::retaining(text(protocol::kRequestIDKey, "kRequestIDKey"));
  }
  // An integer of 32 bits, as process ids are kept.
  long pid() const {
    CFTypeRef value = nullptr;
    std::int64_t pid = 0;
    if (!CFUtil::CFDictGet(userInfo_, protocol::kPIDKey, value) || CFGetTypeID(value) != CFNumberGetTypeID() ||
        !CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt64Type, &pid) ||
        pid < std::numeric_limits<std::int32_t>::min() || pid > std::numeric_limits<std::int32_t>::max()) {
      throwBadKey("kPIDKey");
    }
    return static_cast<long>(pid);
  }
  CURLRef folder() const {
    return plinth::makeShared<CURL>(CSTR(text(protocol::kStorageURLKey, "kStorageURLKey")), kCFURLPOSIXPathStyle, true);
  }
  CURLRef remoteStorage() const {
    const CFStringRef wanted = text(protocol::kStorageURLKey, "kStorageURLKey");
    const CSharedCFRef<CFURLRef> url(CFURLCreateWithString(kCFAllocatorDefault, wanted, nullptr));
    if (url.isNull()) throw plinth::CParamException("storageURL \"%@\" is not a URL", wanted);
    return plinth::makeShared<CURL>(url.get());
  }
  CStringRef mountPath() const { return CSTR(text(protocol::kStorageLocalPathKey, "kStorageLocalPathKey")); }
  CStringRef client() const { return CSTR(sender_.get()); }

  // Nothing when nobody knows whom to send it to.
  std::optional<StorageReply> reply(CFStringRef name, const Failure& failure,
                                    std::optional<std::int32_t> serverPort = std::nullopt) const {
    if (sender_.isNull() || requestID_.isNull()) return std::nullopt;
    const CSharedCFRef<CFMutableDictionaryRef> content(CFUtil::CFDictMakeMutable());
    CFUtil::CFDictSetString(content.get(), protocol::kSenderKey, sender_.get());
    CFUtil::CFDictSetString(content.get(), protocol::kRequestIDKey, requestID_.get());
    if (serverPort) CFUtil::CFDictSetInt(content.get(), protocol::kServerPortKey, *serverPort);
    CFUtil::CFDictSetInt(content.get(), protocol::kResultKey, failure ? protocol::kFailed : protocol::kDone);
    if (failure) {
      CFUtil::CFDictSetInt(content.get(), protocol::kExceptionKindKey, static_cast<std::int32_t>(failure->getKind()));
      CFUtil::CFDictSetString(content.get(), protocol::kExceptionMessageKey, failure->getMessage()->getStringRef());
    }
    return StorageReply{name, sender_, content};
  }

 private:
  CFStringRef text(CFStringRef key, const char* keyName) const {
    CFStringRef value = nullptr;
    if (!CFUtil::CFDictGetString(userInfo_, key, value)) throwBadKey(keyName);
    return value;
  }

  CFDictionaryRef userInfo_;
  CSharedCFRef<CFStringRef> sender_;
  CSharedCFRef<CFStringRef> requestID_;
};

// Does it, and gives what it throws, with one console line under the callback's name.
template <class Action>
Failure failureOf(const char* callback, Action&& action) {
  try {
    action();
    return std::nullopt;
  } catch (const CException& exception) {
    CFUtil::LogToConsole(
        CString::sprintf("CDNSharedStorageServer::%s: CException: %@", callback, exception.getMessage()->getStringRef())
            ->getUTF8Ptr());
    return exception;
  } catch (const std::exception& exception) {
    CFUtil::LogToConsole(CString::sprintf("CDNSharedStorageServer::%s: unknown exception", callback)->getUTF8Ptr());
    return CUnknownException("%s", exception.what());
  } catch (...) {
    CFUtil::LogToConsole(CString::sprintf("CDNSharedStorageServer::%s: unknown exception", callback)->getUTF8Ptr());
    return CUnknownException();
  }
}

}  // namespace

std::optional<StorageReply> answerPublishRequest(ISharedStorage& storage, CFStringRef name, CFDictionaryRef request) {
  const bool isPublish = isName(name, protocol::kPublish);
  if (!isPublish && !isName(name, protocol::kUnpublish)) return std::nullopt;
  Request asked(request);
  const Failure failure = failureOf("publishNotification", [&] {
    asked.readAddress();
    const long pid = asked.pid();
    const CURLRef url = asked.folder();
    if (isPublish) {
      storage.publish(url, asked.client(), pid);
    } else {
      storage.unpublish(url, asked.client(), pid);
    }
  });
  return asked.reply(isPublish ? protocol::kPublishResult : protocol::kUnpublishResult, failure);
}

std::optional<StorageReply> answerSubscribeRequest(ISharedStorage& storage, CFStringRef name, CFDictionaryRef request) {
  const bool isSubscribe = isName(name, protocol::kSubscribe);
  if (!isSubscribe && !isName(name, protocol::kUnsubscribe)) return std::nullopt;
  Request asked(request);
  const Failure failure = failureOf("subscribeNotification", [&] {
    asked.readAddress();
    const long pid = asked.pid();
    const CURLRef url = asked.remoteStorage();
    const CStringRef mountPath = asked.mountPath();
    if (isSubscribe) {
      storage.subscribe(url, mountPath, asked.client(), pid);
    } else {
      storage.unsubscribe(url, mountPath, asked.client(), pid);
    }
  });
  return asked.reply(isSubscribe ? protocol::kSubscribeResult : protocol::kUnsubscribeResult, failure);
}

std::optional<StorageReply> answerServerPortRequest(ISharedStorage& storage, CFStringRef name,
                                                    CFDictionaryRef request) {
  if (!isName(name, protocol::kGetServerPort)) return std::nullopt;
  Request asked(request);
  std::optional<std::int32_t> port;
  const Failure failure = failureOf("getServerPortNotification", [&] {
    asked.readAddress();
    port = storage.getServerPort();
  });
  return asked.reply(protocol::kGetServerPortResult, failure, port);
}

void takeProcessTerminated(ISharedStorage& storage, CFStringRef name, CFDictionaryRef notification) {
  if (!isName(name, protocol::kProcessTerminated)) return;
  failureOf("processTerminatedNotification", [&] { storage.processTerminated(Request(notification).pid()); });
}

}  // namespace tovan
