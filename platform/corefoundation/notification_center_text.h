// notification_center_text.h: any string as a string of the bus, and back.
//
// The bus carries well-formed UTF-8 without NUL, and sd-bus no code points that are "noncharacters" (U+FDD0 to U+FDEF,
// and the last two of each plane). CFString holds all of these and lone surrogates as well. Each such code point is
// written as U+001A (SUBSTITUTE) and six lower-case hexadecimal digits, and so is U+001A itself: NUL is "\x1a"
// "000000". All other text stays as it is.
#pragma once

#include "platform/corefoundation/runtime.h"
#include "platform/corefoundation/string.h"

#include <string>
#include <string_view>

namespace cf {

// The text of a string for the bus, without a copy where nothing needs writing differently. Used while the string
// lives.
class BusText {
 public:
  explicit BusText(CFStringRef string);
  BusText(const BusText&) = delete;
  BusText& operator=(const BusText&) = delete;
  const char* cString() const noexcept { return escaped_.empty() ? plain_.data() : escaped_.c_str(); }
  std::size_t size() const noexcept { return escaped_.empty() ? plain_.size() : escaped_.size(); }
  std::string_view view() const noexcept { return {cString(), size()}; }

 private:
  std::string_view plain_;
  std::string escaped_;
};

// The string that such a text stands for; empty when the text is not what BusText writes.
Owned<CFStringRef> stringFromBusText(const char* text);

}  // namespace cf
