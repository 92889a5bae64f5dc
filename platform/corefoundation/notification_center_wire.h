// notification_center_wire.h: a notification as a D-Bus signal. docs/notifications.md describes the form for people.
//
// The signal's arguments are "ssua{sv}": name, object ("" for none), flags, and user info (empty for none). Values are
//   boolean b, 16 bits n, 32 bits i, 64 bits x, above the signed 64 bits t, double d, string s, data ay, array av,
//   dictionary a{sv}, and as a structure of a word and a value: ("int8" n), ("float32" d), ("date" d, seconds since
//   2001).
// Texts are written by notification_center_text.h. The bus allows 64 levels of containers and a dictionary takes three,
// so a container that is more than kPlainLevels deep is written flat: ("flat" av), whose elements are the container and
// everything inside it, each container as (yu) before its content: 'a' and the number of elements, or 'd' and the
// number of pairs.
#pragma once

#include "platform/corefoundation/bus_connection.h"
#include "platform/corefoundation/runtime.h"

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>

#include <cstddef>
#include <cstdint>

namespace cf {

inline constexpr const char* kNotificationPath = "/com/brant/mervane/DistributedNotifications1";
inline constexpr const char* kNotificationInterface = "com.brant.mervane.DistributedNotifications1";
inline constexpr const char* kNotificationMember = "Posted";
inline constexpr const char* kNotificationSignature = "ssua{sv}";

inline constexpr const char* kNotificationInt8 = "int8";
inline constexpr const char* kNotificationFloat = "float32";
inline constexpr const char* kNotificationDate = "date";
inline constexpr const char* kNotificationFlat = "flat";

enum NotificationFlags : std::uint32_t { kNotificationHasObject = 1, kNotificationHasUserInfo = 2 };

inline constexpr int kPlainLevels = 12;
// The texts and data of one notification, with 16 bytes for every value.
inline constexpr std::size_t kMaximumNotificationSize = std::size_t{8} << 20;

enum class WriteResult { written, notPropertyList, tooLarge, busFailed };

// The signal for a notification; object and userInfo may be null. `error` is an errno when the bus failed.
WriteResult writeNotification(sd_bus* bus, CFStringRef name, CFStringRef object, CFDictionaryRef userInfo,
                              BusMessage& message, int& error);

// A notification on its way in: the head is read first, the user info only when somebody wants it.
struct NotificationHead {
  Owned<CFStringRef> name;
  Owned<CFStringRef> object;  // empty for a null object
  bool hasUserInfo = false;
};

enum class ReadResult {
  read,
  foreign,   // not a notification at all
  malformed  // sent as one, but not of the form, or not to everybody
};
ReadResult readNotificationHead(sd_bus_message* message, NotificationHead& head);
// Behind the head: the dictionary, or empty when it is malformed.
Owned<CFDictionaryRef> readNotificationUserInfo(sd_bus_message* message);

}  // namespace cf
