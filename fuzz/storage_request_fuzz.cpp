// storage_request_fuzz.cpp: arbitrary property lists as the user info of storage requests. Whatever they hold, no
// exception gets out, the storage is asked only for what the request says, and a reply goes to its sender under its id.
//
// The first byte of the input chooses the request's name and what the storage throws; the rest is a property list.
#include <plinth/exception.h>

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <vector>

#include "storage/storage_protocol.h"
#include "storage/storage_request.h"

namespace {

namespace protocol = tovan::protocol;
using plinth::CSharedCFRef;
using tovan::StorageReply;

void require(bool holds, const char* what) {
  if (holds) return;
  std::printf("storage_request_fuzz: %s\n", what);
  std::fflush(stdout);
  std::abort();
}

class Storage : public tovan::ISharedStorage {
 public:
  explicit Storage(int thrown) : thrown_(thrown) {}
  OSStatus publish(const plinth::CURLRef& url, const plinth::CStringRef& client, long) override {
    require(!url.isNull() && !client.isNull(), "a publish without its arguments");
    called();
    return 0;
  }
  void unpublish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid) override {
    publish(url, client, pid);
  }
  std::int32_t getServerPort() override {
    called();
    return 2049;
  }
  void processTerminated(long) override { called(); }
  void subscribe(const plinth::CURLRef& url, const plinth::CStringRef& path, const plinth::CStringRef& client,
                 long) override {
    require(!url.isNull() && !path.isNull() && !client.isNull(), "a subscribe without its arguments");
    called();
  }
  void unsubscribe(const plinth::CURLRef& url, const plinth::CStringRef& path, const plinth::CStringRef& client,
                   long pid) override {
    subscribe(url, path, client, pid);
  }
  int calls = 0;

 private:
  void called() {
    ++calls;
    if (thrown_ == 1) throw plinth::CParamException("%s", "refused");
    if (thrown_ == 2) throw std::runtime_error("odd");
    if (thrown_ == 3) throw 42;
  }
  int thrown_;
};

bool isText(CFTypeRef value) { return value != nullptr && CFGetTypeID(value) == CFStringGetTypeID(); }

void requireThatTheReplyFits(const std::optional<StorageReply>& reply, CFDictionaryRef request, bool hasThrown,
                             int calls) {
  const CFTypeRef sender = request == nullptr ? nullptr : CFDictionaryGetValue(request, protocol::kSenderKey);
  const CFTypeRef id = request == nullptr ? nullptr : CFDictionaryGetValue(request, protocol::kRequestIDKey);
  require(reply.has_value() == (isText(sender) && isText(id)), "a reply too many, or one too few");
  require(reply.has_value() || calls == 0, "something was done that nobody hears of");
  if (!reply) return;
  const CFDictionaryRef content = reply->userInfo.get();
  require(CFEqual(reply->object.get(), sender) != 0, "a reply to somebody else");
  require(CFEqual(CFDictionaryGetValue(content, protocol::kSenderKey), sender) != 0, "another sender");
  require(CFEqual(CFDictionaryGetValue(content, protocol::kRequestIDKey), id) != 0, "another id");
  int result = 1;
  CFNumberGetValue(static_cast<CFNumberRef>(CFDictionaryGetValue(content, protocol::kResultKey)), kCFNumberIntType,
                   &result);
  require(result == (calls == 1 && !hasThrown ? 0 : -1), "another result");
  require(CFDictionaryContainsKey(content, protocol::kExceptionKindKey) == (result != 0), "a kind of no failure");
  require(CFDictionaryContainsKey(content, protocol::kExceptionMessageKey) == (result != 0), "a text of no failure");
}

}  // namespace

// Each failure is a console line, which nobody wants to read here; the fuzzer's own reports go elsewhere.
extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments) {
  static char quiet[] = "-close_fd_mask=2";
  static std::vector<char*> extended;
  extended.assign(*arguments, *arguments + *count);
  extended.insert(extended.begin() + 1, quiet);
  extended.push_back(nullptr);
  ++*count;
  *arguments = extended.data();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const CSharedCFRef<CFDataRef> bytes(CFDataCreate(nullptr, data + 1, static_cast<CFIndex>(size - 1)));
  const CSharedCFRef<CFPropertyListRef> list(
      CFPropertyListCreateWithData(nullptr, bytes.get(), kCFPropertyListImmutable, nullptr, nullptr));
  const bool isDictionary = list && CFGetTypeID(list.get()) == CFDictionaryGetTypeID();
  const auto request = isDictionary ? static_cast<CFDictionaryRef>(list.get()) : nullptr;
  const int thrown = data[0] >> 4 & 3;
  Storage storage(thrown);
  const auto check = [&](const std::optional<StorageReply>& reply) {
    requireThatTheReplyFits(reply, request, thrown != 0, storage.calls);
  };
  switch (data[0] & 7) {
    case 0:
      check(tovan::answerPublishRequest(storage, protocol::kPublish, request));
      break;
    case 1:
      check(tovan::answerPublishRequest(storage, protocol::kUnpublish, request));
      break;
    case 2:
      check(tovan::answerSubscribeRequest(storage, protocol::kSubscribe, request));
      break;
    case 3:
      check(tovan::answerSubscribeRequest(storage, protocol::kUnsubscribe, request));
      break;
    case 4:
      check(tovan::answerServerPortRequest(storage, protocol::kGetServerPort, request));
      break;
    case 5:
      tovan::takeProcessTerminated(storage, protocol::kProcessTerminated, request);
      break;
    default:
      require(!tovan::answerPublishRequest(storage, protocol::kSubscribe, request), "a name of another request");
      require(!tovan::answerSubscribeRequest(storage, protocol::kPublish, request), "a name of another request");
      require(!tovan::answerServerPortRequest(storage, nullptr, request), "a name of another request");
      require(storage.calls == 0, "something was done under a name of another request");
  }
  return 0;
}
