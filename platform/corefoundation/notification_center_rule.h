// notification_center_rule.h: the match rule with which the bus filters for an observer.
#pragma once

#include <CoreFoundation/CFString.h>

#include <string>

namespace cf {

// The rule for the notifications of a name and an object; null stands for all. The bus takes rules of 1024 bytes: from
// one that would be longer the object is left out, or the name, or both. So the bus may send more than is wanted, never
// less.
std::string notificationRule(CFStringRef name, CFStringRef object);

}  // namespace cf
