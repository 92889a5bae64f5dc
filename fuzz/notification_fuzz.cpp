// notification_fuzz.cpp: arbitrary bytes as the body of a notification, through a socket and sd-bus as they would come
// from a bus. They are refused, or read; what is read can be written, and reads back the same to the last bit.
//
// The first byte of the input chooses the head: the byte order (1), and what makes a message malformed whatever its
// body: a destination (2), no sender (4), another signature (8).
#include <CoreFoundation/CoreFoundation.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/corefoundation/notification_center_wire.h"

namespace {

using cf::Owned;

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "notification_fuzz: %s\n", what);
  std::abort();
}

enum Choice : std::uint8_t { bigEndian = 1, withDestination = 2, withoutSender = 4, otherSignature = 8 };

// The bytes of a signal with any body.
class Signal {
 public:
  Signal(std::uint8_t choices, std::string_view body) : isBig_((choices & bigEndian) != 0) {
    bytes_ += isBig_ ? 'B' : 'l';
    bytes_ += {4, 1, 1};  // a signal, no reply, version 1
    word(body.size());
    word(1);  // the serial number
    word(0);  // the length of the fields, below
    field(1, 'o', cf::kNotificationPath);
    field(2, 's', cf::kNotificationInterface);
    field(3, 's', cf::kNotificationMember);
    if ((choices & withDestination) != 0) field(6, 's', ":1.2");
    if ((choices & withoutSender) == 0) field(7, 's', ":1.3");
    field(8, 'g', (choices & otherSignature) != 0 ? "ssua{ss}" : cf::kNotificationSignature);
    const std::string length = wordBytes(bytes_.size() - kFieldsBegin);
    std::copy(length.begin(), length.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(kFieldsBegin - 4));
    align(8);
    bytes_ += body;
  }
  const std::string& bytes() const { return bytes_; }

 private:
  static constexpr std::size_t kFieldsBegin = 16;

  void align(std::size_t size) { bytes_.resize((bytes_.size() + size - 1) / size * size); }
  std::string wordBytes(std::size_t value) const {
    std::string four;
    for (int i = 0; i < 4; ++i) four += static_cast<char>(value >> 8 * (isBig_ ? 3 - i : i) & 0xFF);
    return four;
  }
  void word(std::size_t value) { bytes_ += wordBytes(value); }
  void field(char number, char type, std::string_view text) {
    align(8);
    bytes_ += {number, 1, type, 0};
    if (type == 'g') {
      bytes_ += static_cast<char>(text.size());
    } else {
      word(text.size());
    }
    bytes_ += text;
    bytes_ += '\0';
  }

  bool isBig_;
  std::string bytes_;
};

struct CloseBus {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, CloseBus>;

// Two ends of a socket that have greeted each other. What one end writes into the socket itself, the other one
// receives.
class Line {
 public:
  Line() {
    int ends[2];
    require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0, "no socket");
    const int room = 1 << 20;
    ::setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    socket_ = ends[0];
    sending_ = start(ends[0], true);
    receiving_ = start(ends[1], false);
    while (sd_bus_is_ready(sending_.get()) <= 0 || sd_bus_is_ready(receiving_.get()) <= 0) {
      for (const Bus& bus : {std::cref(sending_), std::cref(receiving_)}) {
        require(sd_bus_process(bus.get(), nullptr) >= 0, "no greeting");
      }
    }
  }
  sd_bus* receiving() const { return receiving_.get(); }
  // Empty when sd-bus does not take the bytes for a message, and ends the connection.
  cf::BusMessage pass(const std::string& bytes) {
    require(::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()),
            "not sent");
    sd_bus_message* message = nullptr;
    int result;
    while ((result = sd_bus_process(receiving_.get(), &message)) > 0 && message == nullptr) {
    }
    require(result != 0, "nothing came of the bytes");
    return cf::BusMessage(message);
  }

 private:
  static Bus start(int socket, bool asServer) {
    sd_bus* made = nullptr;
    require(sd_bus_new(&made) >= 0 && sd_bus_set_fd(made, socket, socket) >= 0, "no bus");
    Bus bus(made);
    if (asServer) require(sd_bus_set_server(made, 1, sd_id128_t{{1}}) >= 0, "no server");
    require(sd_bus_start(made) >= 0, "no start");
    return bus;
  }

  int socket_ = -1;
  Bus sending_;
  Bus receiving_;
};

std::uint64_t bits(double value) {
  std::uint64_t same = 0;
  std::memcpy(&same, &value, sizeof same);
  return same;
}

bool isSame(CFTypeRef left, CFTypeRef right);

bool isSameArray(CFArrayRef left, CFArrayRef right) {
  const CFIndex count = CFArrayGetCount(left);
  if (CFArrayGetCount(right) != count) return false;
  for (CFIndex i = 0; i < count; ++i) {
    if (!isSame(CFArrayGetValueAtIndex(left, i), CFArrayGetValueAtIndex(right, i))) return false;
  }
  return true;
}

// In the same order, too.
bool isSameDictionary(CFDictionaryRef left, CFDictionaryRef right) {
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(left));
  if (static_cast<std::size_t>(CFDictionaryGetCount(right)) != count) return false;
  std::vector<const void*> keys(count), otherKeys(count), values(count), otherValues(count);
  CFDictionaryGetKeysAndValues(left, keys.data(), values.data());
  CFDictionaryGetKeysAndValues(right, otherKeys.data(), otherValues.data());
  for (std::size_t i = 0; i < count; ++i) {
    if (!isSame(keys[i], otherKeys[i]) || !isSame(values[i], otherValues[i])) return false;
  }
  return true;
}

bool isSame(CFTypeRef left, CFTypeRef right) {
  const CFTypeID kind = CFGetTypeID(left);
  if (CFGetTypeID(right) != kind) return false;
  if (kind == CFArrayGetTypeID()) return isSameArray(static_cast<CFArrayRef>(left), static_cast<CFArrayRef>(right));
  if (kind == CFDictionaryGetTypeID()) {
    return isSameDictionary(static_cast<CFDictionaryRef>(left), static_cast<CFDictionaryRef>(right));
  }
  if (kind == CFDateGetTypeID()) {
    return bits(CFDateGetAbsoluteTime(static_cast<CFDateRef>(left))) ==
           bits(CFDateGetAbsoluteTime(static_cast<CFDateRef>(right)));
  }
  if (kind != CFNumberGetTypeID()) return CFEqual(left, right) != 0;
  const auto one = static_cast<CFNumberRef>(left);
  const auto other = static_cast<CFNumberRef>(right);
  if (CFNumberGetType(one) != CFNumberGetType(other)) return false;
  if (CFNumberIsFloatType(one) == 0) return CFEqual(left, right) != 0;
  double value = 0, otherValue = 0;
  CFNumberGetValue(one, kCFNumberFloat64Type, &value);
  CFNumberGetValue(other, kCFNumberFloat64Type, &otherValue);
  return bits(value) == bits(otherValue);
}

void requireThatItGoesRoundUnchanged(sd_bus* bus, const cf::NotificationHead& head, CFDictionaryRef userInfo) {
  cf::BusMessage message;
  int error = 0;
  const CFDictionaryRef written = head.hasUserInfo ? userInfo : nullptr;
  require(cf::writeNotification(bus, head.name.get(), head.object.get(), written, message, error) ==
              cf::WriteResult::written,
          "what was read cannot be written");
  require(sd_bus_message_set_sender(message.get(), ":1.3") >= 0, "no sender");
  require(sd_bus_message_seal(message.get(), 1, 0) >= 0, "not sealed");
  cf::NotificationHead again;
  require(cf::readNotificationHead(message.get(), again) == cf::ReadResult::read, "what was written is not read");
  require(isSame(again.name.get(), head.name.get()), "another name");
  require(static_cast<bool>(again.object) == static_cast<bool>(head.object), "an object more or less");
  require(!head.object || isSame(again.object.get(), head.object.get()), "another object");
  require(again.hasUserInfo == head.hasUserInfo, "user info more or less");
  const Owned<CFDictionaryRef> infoAgain = cf::readNotificationUserInfo(message.get());
  require(static_cast<bool>(infoAgain), "the user info that was written is not read");
  if (head.hasUserInfo) require(isSame(infoAgain.get(), userInfo), "other user info");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static std::unique_ptr<Line> line;
  if (size == 0) return 0;
  if (!line) line = std::make_unique<Line>();
  const Signal signal(data[0], {reinterpret_cast<const char*>(data + 1), size - 1});
  const cf::BusMessage message = line->pass(signal.bytes());
  require(static_cast<bool>(message), "a message of a good form was refused");
  cf::NotificationHead head;
  const cf::ReadResult result = cf::readNotificationHead(message.get(), head);
  require(result != cf::ReadResult::foreign, "a notification was taken for something else");
  if ((data[0] & (withDestination | withoutSender | otherSignature)) != 0) {
    require(result == cf::ReadResult::malformed, "a malformed head was read");
  }
  if (result != cf::ReadResult::read) return 0;
  if (const Owned<CFDictionaryRef> userInfo = cf::readNotificationUserInfo(message.get())) {
    requireThatItGoesRoundUnchanged(line->receiving(), head, userInfo.get());
  }
  return 0;
}
