// Writing a notification as a signal.
#include "platform/corefoundation/array.h"
#include "platform/corefoundation/base.h"
#include "platform/corefoundation/data.h"
#include "platform/corefoundation/dictionary.h"
#include "platform/corefoundation/notification_center_text.h"
#include "platform/corefoundation/notification_center_wire.h"
#include "platform/corefoundation/number.h"
#include "platform/corefoundation/string.h"

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFPropertyList.h>

#include <systemd/sd-bus.h>

#include <vector>

namespace cf {
namespace {

bool isContainer(const void* value) { return isKind(value, kArrayClass) || isKind(value, kDictionaryClass); }

class Writer {
 public:
  explicit Writer(sd_bus_message* message) : message_(message) {}

  bool text(CFStringRef string) {
    const BusText text(string);
    return fits(text.size()) && done(sd_bus_message_append_basic(message_, 's', text.cString()));
  }

  // `depth` containers enclose the pairs' values.
  bool pairs(CFDictionaryRef dictionary, int depth) {
    if (!open('a', "{sv}")) return false;
    for (const DictionaryEntry& entry : entries(dictionary)) {
      if (!isString(entry.key)) return fail(WriteResult::notPropertyList);
      if (!open('e', "sv") || !text(static_cast<CFStringRef>(entry.key)) || !variant(entry.value, depth) || !close()) {
        return false;
      }
    }
    return close();
  }

  WriteResult result() const { return result_; }
  int error() const { return error_; }

 private:
  bool variant(const void* value, int depth) {
    if (value == nullptr) return fail(WriteResult::notPropertyList);
    const CFRuntimeClass* const kind = head(value)->type;
    if (kind == &kArrayClass || kind == &kDictionaryClass) {
      if (depth == kPlainLevels) return flat(value, depth);
      if (kind == &kArrayClass) return elements(static_cast<CFArrayRef>(value), depth + 1);
      return open('v', "a{sv}") && pairs(static_cast<CFDictionaryRef>(value), depth + 1) && close();
    }
    return leaf(value);
  }

  bool leaf(const void* value) {
    const CFRuntimeClass* const kind = head(value)->type;
    if (kind == &kCFStringClass) return open('v', "s") && text(static_cast<CFStringRef>(value)) && close();
    if (kind == &kNumberClass) return number(static_cast<CFNumberRef>(value));
    if (kind == &kBooleanClass) {
      const int truth = CFBooleanGetValue(static_cast<CFBooleanRef>(value));
      return basic('b', "b", &truth);
    }
    if (kind == &kDataClass) {
      const auto content = bytes(static_cast<CFDataRef>(value));
      return fits(content.size()) && open('v', "ay") &&
             done(sd_bus_message_append_array(message_, 'y', content.data(), content.size())) && close();
    }
    if (kind == &kDateClass) return marked(kNotificationDate, CFDateGetAbsoluteTime(static_cast<CFDateRef>(value)));
    return fail(WriteResult::notPropertyList);
  }

  bool number(CFNumberRef number) {
    const NumberValue value = numberValue(number);
    if (value.form == NumberForm::kUnsigned) return basic('t', "t", &value.largeUnsigned);
    switch (CFNumberGetType(number)) {
      case kCFNumberSInt8Type: {
        const auto narrow = static_cast<std::int16_t>(value.integer);
        return markedOpen("sn", kNotificationInt8) && done(sd_bus_message_append_basic(message_, 'n', &narrow)) &&
               markedClose();
      }
      case kCFNumberSInt16Type: {
        const auto narrow = static_cast<std::int16_t>(value.integer);
        return basic('n', "n", &narrow);
      }
      case kCFNumberSInt32Type: {
        const auto narrow = static_cast<std::int32_t>(value.integer);
        return basic('i', "i", &narrow);
      }
      case kCFNumberFloat32Type:
        return marked(kNotificationFloat, value.real);
      case kCFNumberFloat64Type:
        return basic('d', "d", &value.real);
      default:
        return basic('x', "x", &value.integer);
    }
  }

  bool elements(CFArrayRef array, int depth) {
    if (!open('v', "av") || !open('a', "v")) return false;
    for (const void* const value : items(array)) {
      if (!variant(value, depth)) return false;
    }
    return close() && close();
  }

  // The container and all inside it one after the other, with a stack of what is still to come in place of levels.
  bool flat(const void* container, int depth) {
    struct Pending {
      const void* value;
      int depth;
    };
    if (!markedOpen("sav", kNotificationFlat) || !open('a', "v")) return false;
    std::vector<Pending> pending = {{container, depth}};
    while (!pending.empty()) {
      const Pending next = pending.back();
      pending.pop_back();
      if (!isContainer(next.value)) {
        if (next.value == nullptr) return fail(WriteResult::notPropertyList);
        if (!leaf(next.value)) return false;
        continue;
      }
      if (next.depth >= kCFPropertyListMaximumDepth) return fail(WriteResult::notPropertyList);
      const std::size_t begin = pending.size();
      std::uint8_t kind = 'a';
      if (isKind(next.value, kArrayClass)) {
        for (const void* const value : items(static_cast<CFArrayRef>(next.value))) {
          pending.push_back({value, next.depth + 1});
        }
      } else {
        kind = 'd';
        for (const DictionaryEntry& entry : entries(static_cast<CFDictionaryRef>(next.value))) {
          if (!isString(entry.key)) return fail(WriteResult::notPropertyList);
          pending.push_back({entry.key, next.depth + 1});
          pending.push_back({entry.value, next.depth + 1});
        }
      }
      const std::size_t added = pending.size() - begin;
      std::reverse(pending.begin() + static_cast<std::ptrdiff_t>(begin), pending.end());
      if (!opening(kind, static_cast<std::uint32_t>(kind == 'd' ? added / 2 : added))) return false;
    }
    return close() && markedClose();
  }

  bool opening(std::uint8_t kind, std::uint32_t count) {
    return fits(0) && open('v', "(yu)") && open('r', "yu") && done(sd_bus_message_append_basic(message_, 'y', &kind)) &&
           done(sd_bus_message_append_basic(message_, 'u', &count)) && close() && close();
  }

  bool basic(char type, const char* signature, const void* value) {
    return fits(0) && open('v', signature) && done(sd_bus_message_append_basic(message_, type, value)) && close();
  }

  bool marked(const char* word, double value) {
    return markedOpen("sd", word) && done(sd_bus_message_append_basic(message_, 'd', &value)) && markedClose();
  }
  bool markedOpen(const std::string& content, const char* word) {
    return fits(0) && open('v', ("(" + content + ")").c_str()) && open('r', content.c_str()) &&
           done(sd_bus_message_append_basic(message_, 's', word));
  }
  bool markedClose() { return close() && close(); }

  bool open(char type, const char* content) { return done(sd_bus_message_open_container(message_, type, content)); }
  bool close() { return done(sd_bus_message_close_container(message_)); }

  bool fits(std::size_t size) {
    size_ += size + 16;
    return size_ <= kMaximumNotificationSize || fail(WriteResult::tooLarge);
  }
  bool done(int result) {
    if (result >= 0) return true;
    error_ = -result;
    return fail(WriteResult::busFailed);
  }
  bool fail(WriteResult result) {
    result_ = result;
    return false;
  }

  sd_bus_message* message_;
  std::size_t size_ = 0;
  WriteResult result_ = WriteResult::written;
  int error_ = 0;
};

}  // namespace

WriteResult writeNotification(sd_bus* bus, CFStringRef name, CFStringRef object, CFDictionaryRef userInfo,
                              BusMessage& message, int& error) {
  sd_bus_message* made = nullptr;
  const int result =
      sd_bus_message_new_signal(bus, &made, kNotificationPath, kNotificationInterface, kNotificationMember);
  if (result < 0) {
    error = -result;
    return WriteResult::busFailed;
  }
  message = BusMessage(made);
  const std::uint32_t flags =
      (object == nullptr ? 0U : kNotificationHasObject) | (userInfo == nullptr ? 0U : kNotificationHasUserInfo);
  Writer writer(made);
  if (writer.text(name) && writer.text(object == nullptr ? CFSTR("") : object)) {
    const int appended = sd_bus_message_append_basic(made, 'u', &flags);
    if (appended < 0) {
      error = -appended;
      return WriteResult::busFailed;
    }
    writer.pairs(userInfo, 1);
  }
  error = writer.error();
  return writer.result();
}

}  // namespace cf
