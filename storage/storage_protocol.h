// storage_protocol.h: the names and keys of the storage protocol, which docs/storage-protocol.md describes.
#pragma once

#include <CoreFoundation/CFString.h>

namespace tovan::protocol {

inline constexpr CFStringRef kPublish = CFSTR("MervaneSharedStoragePublishNotification2");
inline constexpr CFStringRef kUnpublish = CFSTR("MervaneSharedStorageUnpublishNotification2");
inline constexpr CFStringRef kSubscribe = CFSTR("MervaneSharedStorageSubscribeNotification2");
inline constexpr CFStringRef kUnsubscribe = CFSTR("MervaneSharedStorageUnsubscribeNotification2");
inline constexpr CFStringRef kGetServerPort = CFSTR("MervaneGetServerPortNotification2");
inline constexpr CFStringRef kProcessTerminated = CFSTR("MervaneProcessTerminatedNotification2");

inline constexpr CFStringRef kPublishResult = CFSTR("MervaneSharedStoragePublishResultNotification2");
inline constexpr CFStringRef kUnpublishResult = CFSTR("MervaneSharedStorageUnpublishResultNotification2");
inline constexpr CFStringRef kSubscribeResult = CFSTR("MervaneSharedStorageSubscribeResultNotification2");
inline constexpr CFStringRef kUnsubscribeResult = CFSTR("MervaneSharedStorageUnsubscribeResultNotification2");
inline constexpr CFStringRef kGetServerPortResult = CFSTR("MervaneGetServerPortResultNotification2");

inline constexpr CFStringRef kSenderKey = CFSTR("sender");
inline constexpr CFStringRef kRequestIDKey = CFSTR("requestID");
inline constexpr CFStringRef kPIDKey = CFSTR("pid");
inline constexpr CFStringRef kStorageURLKey = CFSTR("storageURL");
inline constexpr CFStringRef kStorageLocalPathKey = CFSTR("storageLocalPath");
inline constexpr CFStringRef kResultKey = CFSTR("result");
inline constexpr CFStringRef kExceptionKindKey = CFSTR("exceptionKind");
inline constexpr CFStringRef kExceptionMessageKey = CFSTR("exceptionMessage");
inline constexpr CFStringRef kServerPortKey = CFSTR("serverPort");

// The "result" of a request that was done, and of one that threw.
inline constexpr int kDone = 0;
inline constexpr int kFailed = -1;

// The object of a process-terminated notification.
inline constexpr CFStringRef kProcessTerminatedObject = CFSTR("processTerminated");
// The client name of a request for the server port.
inline constexpr CFStringRef kServerPortClient = CFSTR("mervane");

}  // namespace tovan::protocol
