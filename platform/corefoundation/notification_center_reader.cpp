// Reading a notification from a signal. Nothing in the message is trusted: sd-bus has checked that it is a message, and
// every value here is checked to be one that the writer writes.
#include "platform/corefoundation/array.h"
#include "platform/corefoundation/base.h"
#include "platform/corefoundation/data.h"
#include "platform/corefoundation/dictionary.h"
#include "platform/corefoundation/notification_center_text.h"
#include "platform/corefoundation/notification_center_wire.h"
#include "platform/corefoundation/number.h"

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFPropertyList.h>

#include <systemd/sd-bus.h>

#include <cstring>
#include <string_view>
#include <vector>

namespace cf {
namespace {

// The references of a container's content until the container takes them over.
class Content {
 public:
  Content() = default;
  Content(Content&& other) noexcept : objects_(std::move(other.objects_)) { other.objects_.clear(); }
  Content& operator=(Content&&) = delete;
  Content(const Content&) = delete;
  Content& operator=(const Content&) = delete;
  ~Content() {
    for (const void* const object : objects_) release(object);
  }
  void add(Owned<CFTypeRef> object) {
    objects_.push_back(object.get());
    object.take();
  }
  std::size_t size() const { return objects_.size(); }
  Owned<CFTypeRef> makeArray() {
    Owned<CFTypeRef> made(createArrayTaking(objects_));
    objects_.clear();
    return made;
  }
  // Of keys and values in turn.
  Owned<CFTypeRef> makeDictionary() {
    std::vector<KeyAndValue> pairs;
    pairs.reserve(objects_.size() / 2);
    for (std::size_t i = 0; i + 1 < objects_.size(); i += 2) pairs.push_back({objects_[i], objects_[i + 1]});
    Owned<CFTypeRef> made(createDictionaryTaking(pairs));
    objects_.clear();
    return made;
  }

 private:
  std::vector<const void*> objects_;
};

CFNumberRef createNumber(CFNumberType type, const void* value) {
  return CFNumberCreate(kCFAllocatorDefault, type, value);
}

// Puts the elements of a flat list together again. A stack of what is open stands for the levels.
class Assembly {
 public:
  // `depth` containers enclose the list.
  explicit Assembly(std::size_t depth) : depth_(depth) {}
  // False for an element that cannot stand here.
  bool open(std::uint8_t kind, std::uint32_t count) {
    if ((kind != 'a' && kind != 'd') || result_ || depth_ + open_.size() >= kCFPropertyListMaximumDepth) return false;
    if (!open_.empty() && expectsKey(open_.back())) return false;
    open_.push_back({kind, std::size_t{count} * (kind == 'd' ? 2 : 1), Content()});
    return closeWhatIsFull();
  }
  bool add(Owned<CFTypeRef> value) {
    if (open_.empty() || isKind(value.get(), kArrayClass) || isKind(value.get(), kDictionaryClass)) return false;
    if (expectsKey(open_.back()) && !isString(value.get())) return false;
    open_.back().content.add(std::move(value));
    return closeWhatIsFull();
  }
  // Empty when something is missing.
  Owned<CFTypeRef> take() { return open_.empty() ? std::move(result_) : Owned<CFTypeRef>(); }

 private:
  struct Open {
    std::uint8_t kind;
    std::size_t count;
    Content content;
  };
  static bool expectsKey(const Open& container) { return container.kind == 'd' && container.content.size() % 2 == 0; }

  bool closeWhatIsFull() {
    while (!open_.empty() && open_.back().content.size() == open_.back().count) {
      Open& full = open_.back();
      Owned<CFTypeRef> made = full.kind == 'a' ? full.content.makeArray() : full.content.makeDictionary();
      open_.pop_back();
      if (open_.empty()) {
        result_ = std::move(made);
      } else {
        open_.back().content.add(std::move(made));
      }
    }
    return true;
  }

  const std::size_t depth_;
  std::vector<Open> open_;
  Owned<CFTypeRef> result_;
};

// Every function gives an empty result, or false, when the message does not hold what is asked for. How deep they call
// each other is bounded by the levels that a message can have.
class Reader {
 public:
  explicit Reader(sd_bus_message* message) : message_(message) {}

  Owned<CFStringRef> text() {
    const char* value = nullptr;
    if (!basic('s', &value)) return {};
    return stringFromBusText(value);
  }

  Owned<CFTypeRef> pairs() {
    if (!enter('a', "{sv}")) return {};
    ++depth_;
    Content content;
    while (enter('e', "sv")) {
      Owned<CFTypeRef> key(text().take());
      if (!key) return {};
      content.add(std::move(key));
      Owned<CFTypeRef> value = variant();
      if (!value || !exit()) return {};
      content.add(std::move(value));
    }
    if (!exit()) return {};
    --depth_;
    return content.makeDictionary();
  }

  bool basic(char type, void* value) { return sd_bus_message_read_basic(message_, type, value) > 0; }

 private:
  // The content of the variant that comes next; empty for none.
  const char* variantContent() {
    char type = 0;
    const char* content = nullptr;
    const bool isVariant = sd_bus_message_peek_type(message_, &type, &content) > 0 && type == 'v';
    return isVariant && content != nullptr ? content : "";
  }

  Owned<CFTypeRef> variant() {
    const std::string content = variantContent();
    if (content.empty() || !enter('v', content.c_str())) return {};
    Owned<CFTypeRef> value = content.size() == 1 ? basicValue(content[0]) : otherValue(content);
    if (!value || !exit()) return {};
    return value;
  }

  // Besides the types that are written, those that a tool at hand may send: unsigned numbers become the next wider one.
  Owned<CFTypeRef> basicValue(char type) {
    union {
      int truth;
      std::uint8_t byte;
      std::int16_t signed16;
      std::uint16_t unsigned16;
      std::int32_t signed32;
      std::uint32_t unsigned32;
      std::int64_t signed64;
      std::uint64_t unsigned64;
      double real;
    } value;
    if (type == 's') return Owned<CFTypeRef>(text().take());
    if (std::strchr("bynqiuxtd", type) == nullptr || !basic(type, &value)) return {};
    switch (type) {
      case 'b':
        return Owned<CFTypeRef>(value.truth != 0 ? kCFBooleanTrue : kCFBooleanFalse);
      case 'y': {
        const std::int16_t wide = value.byte;
        return Owned<CFTypeRef>(createNumber(kCFNumberSInt16Type, &wide));
      }
      case 'n':
        return Owned<CFTypeRef>(createNumber(kCFNumberSInt16Type, &value.signed16));
      case 'q': {
        const std::int32_t wide = value.unsigned16;
        return Owned<CFTypeRef>(createNumber(kCFNumberSInt32Type, &wide));
      }
      case 'i':
        return Owned<CFTypeRef>(createNumber(kCFNumberSInt32Type, &value.signed32));
      case 'u':
        return Owned<CFTypeRef>(createInteger(value.unsigned32));
      case 'x':
        return Owned<CFTypeRef>(createInteger(value.signed64));
      case 't':
        return Owned<CFTypeRef>(createUnsigned(value.unsigned64));
      default:
        return Owned<CFTypeRef>(createReal(value.real));
    }
  }

  Owned<CFTypeRef> otherValue(std::string_view content) {
    if (content == "a{sv}") return pairs();
    if (content == "av") return elements();
    if (content == "ay") return data();
    if (content == "(sd)" || content == "(sn)" || content == "(sav)") return marked(content);
    return {};
  }

  Owned<CFTypeRef> elements() {
    if (!enter('a', "v")) return {};
    ++depth_;
    Content content;
    while (!atEnd()) {
      Owned<CFTypeRef> value = variant();
      if (!value) return {};
      content.add(std::move(value));
    }
    if (!exit()) return {};
    --depth_;
    return content.makeArray();
  }

  Owned<CFTypeRef> data() {
    const void* bytes = nullptr;
    std::size_t size = 0;
    if (sd_bus_message_read_array(message_, 'y', &bytes, &size) < 0) return {};
    return Owned<CFTypeRef>(
        CFDataCreate(kCFAllocatorDefault, static_cast<const UInt8*>(bytes), static_cast<CFIndex>(size)));
  }

  Owned<CFTypeRef> marked(std::string_view content) {
    const char* word = nullptr;
    if (!enter('r', std::string(content.substr(1, content.size() - 2)).c_str()) || !basic('s', &word)) return {};
    Owned<CFTypeRef> value;
    if (content == "(sav)") {
      if (std::string_view(word) == kNotificationFlat) value = flat();
    } else if (content == "(sn)") {
      value = markedByte(word);
    } else {
      value = markedReal(word);
    }
    if (!value || !exit()) return {};
    return value;
  }

  Owned<CFTypeRef> markedByte(std::string_view word) {
    std::int16_t wide = 0;
    if (word != kNotificationInt8 || !basic('n', &wide) || wide < INT8_MIN || wide > INT8_MAX) return {};
    const auto value = static_cast<std::int8_t>(wide);
    return Owned<CFTypeRef>(createNumber(kCFNumberSInt8Type, &value));
  }

  Owned<CFTypeRef> markedReal(std::string_view word) {
    double real = 0;
    if (!basic('d', &real)) return {};
    if (word == kNotificationDate) return Owned<CFTypeRef>(CFDateCreate(kCFAllocatorDefault, real));
    if (word != kNotificationFloat) return {};
    const auto narrow = static_cast<float>(real);
    return Owned<CFTypeRef>(createNumber(kCFNumberFloat32Type, &narrow));
  }

  Owned<CFTypeRef> flat() {
    if (!enter('a', "v")) return {};
    Assembly assembly(depth_);
    while (!atEnd()) {
      if (std::string_view(variantContent()) == "(yu)") {
        std::uint8_t kind = 0;
        std::uint32_t count = 0;
        if (!enter('v', "(yu)") || !enter('r', "yu") || !basic('y', &kind) || !basic('u', &count) || !exit() ||
            !exit() || !assembly.open(kind, count)) {
          return {};
        }
      } else {
        Owned<CFTypeRef> value = variant();
        if (!value || !assembly.add(std::move(value))) return {};
      }
    }
    if (!exit()) return {};
    return assembly.take();
  }

  bool enter(char type, const char* content) { return sd_bus_message_enter_container(message_, type, content) > 0; }
  bool exit() { return sd_bus_message_exit_container(message_) >= 0; }
  bool atEnd() { return sd_bus_message_at_end(message_, 0) != 0; }

  sd_bus_message* message_;
  std::size_t depth_ = 0;  // containers that enclose what comes next; of no use after a failure
};

bool isText(const char* text, const char* expected) { return text != nullptr && std::strcmp(text, expected) == 0; }

}  // namespace

ReadResult readNotificationHead(sd_bus_message* message, NotificationHead& head) {
  if (sd_bus_message_is_signal(message, kNotificationInterface, kNotificationMember) <= 0 ||
      !isText(sd_bus_message_get_path(message), kNotificationPath)) {
    return ReadResult::foreign;
  }
  // A notification goes to everybody who asked for it: one that is sent to us alone is a forgery.
  if (sd_bus_message_get_destination(message) != nullptr || sd_bus_message_get_sender(message) == nullptr ||
      sd_bus_message_has_signature(message, kNotificationSignature) <= 0) {
    return ReadResult::malformed;
  }
  Reader reader(message);
  head.name = reader.text();
  head.object = reader.text();
  std::uint32_t flags = 0;
  if (!head.name || !head.object || !reader.basic('u', &flags)) return ReadResult::malformed;
  if ((flags & kNotificationHasObject) == 0) {
    if (!utf8View(head.object.get()).empty()) return ReadResult::malformed;
    head.object.reset();
  }
  head.hasUserInfo = (flags & kNotificationHasUserInfo) != 0;
  return ReadResult::read;
}

Owned<CFDictionaryRef> readNotificationUserInfo(sd_bus_message* message) {
  return Owned<CFDictionaryRef>(static_cast<CFDictionaryRef>(Reader(message).pairs().take()));
}

}  // namespace cf
