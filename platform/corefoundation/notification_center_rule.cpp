#include "platform/corefoundation/notification_center_rule.h"

#include "platform/corefoundation/notification_center_text.h"
#include "platform/corefoundation/notification_center_wire.h"

namespace cf {
namespace {

constexpr std::size_t kLongestRule = 1024;

// ",argN='TEXT'". Between apostrophes a rule knows no escapes: an apostrophe itself stands outside, behind a backslash.
std::string argument(const char* key, CFStringRef string) {
  if (string == nullptr) return "";
  const BusText text(string);
  std::string part = "," + std::string(key) + "='";
  for (const char byte : text.view()) {
    if (byte == '\'') {
      part += "'\\''";
    } else {
      part += byte;
    }
  }
  return part + "'";
}

}  // namespace

std::string notificationRule(CFStringRef name, CFStringRef object) {
  std::string all = std::string("type='signal',path='") + kNotificationPath + "',interface='" + kNotificationInterface +
                    "',member='" + kNotificationMember + "'";
  const std::string byName = argument("arg0", name);
  const std::string byObject = argument("arg1", object);
  const std::size_t room = kLongestRule - all.size();
  if (byName.size() + byObject.size() <= room) return all + byName + byObject;
  if (byName.size() <= room) return all + byName;
  if (byObject.size() <= room) return all + byObject;
  return all;
}

}  // namespace cf
