// storage_request.h: a request of the storage protocol, from its dictionary to the reply.
//
// Nothing in the dictionary is trusted, and it may be null. No exception of the storage or about the request leaves
// these functions: it is one console line, and in the reply. Only what has nothing to do with the request does, such as
// want of memory while the reply is made.
#pragma once

#include <tovan/shared_storage.h>

#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>

#include <optional>

namespace tovan {

struct StorageReply {
  CFStringRef name = nullptr;
  plinth::CSharedCFRef<CFStringRef> object;  // the request's sender
  plinth::CSharedCFRef<CFDictionaryRef> userInfo;
};

// Each is for the notifications of its names, and does and answers nothing for another. There is no reply to a request
// without a sender or an id either.
std::optional<StorageReply> answerPublishRequest(ISharedStorage& storage, CFStringRef name, CFDictionaryRef request);
std::optional<StorageReply> answerSubscribeRequest(ISharedStorage& storage, CFStringRef name, CFDictionaryRef request);
std::optional<StorageReply> answerServerPortRequest(ISharedStorage& storage, CFStringRef name, CFDictionaryRef request);
void takeProcessTerminated(ISharedStorage& storage, CFStringRef name, CFDictionaryRef notification);

}  // namespace tovan
