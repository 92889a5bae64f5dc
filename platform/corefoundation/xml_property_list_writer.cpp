#include "platform/corefoundation/array.h"
#include "platform/corefoundation/base.h"
#include "platform/corefoundation/base64.h"
#include "platform/corefoundation/data.h"
#include "platform/corefoundation/dictionary.h"
#include "platform/corefoundation/property_list_buffer.h"
#include "platform/corefoundation/property_list_failure.h"
#include "platform/corefoundation/property_list_text.h"
#include "platform/corefoundation/string.h"
#include "platform/corefoundation/xml_property_list.h"
#include "platform/corefoundation/xml_property_list_characters.h"

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFNumber.h>

#include <algorithm>
#include <array>
#include <string>

namespace cf {
namespace {

constexpr std::string_view kHeader =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view kFooter = "</plist>\n";

// A list in which containers are shared may be far larger as text than in memory.
constexpr std::size_t kLargestList = std::size_t{1} << 29;

constexpr std::size_t kLineWidth = 76;  // of base64 lines, a tab counted as 8
constexpr std::size_t kNarrowestLine = 16;

// Bytes that are copied as they are: plain character data, and "]", which only a reader has to look at twice.
constexpr std::array<bool, 256> makeCopied() {
  std::array<bool, 256> copied{};
  for (std::size_t byte = 0; byte < copied.size(); ++byte) copied[byte] = kXMLByteKinds[byte] == kPlain || byte == ']';
  copied['>'] = false;
  return copied;
}

constexpr std::array<bool, 256> kCopied = makeCopied();

class XMLWriter {
 public:
  CFDataRef write(CFPropertyListRef list) {
    buffer_.append(kHeader);
    value(list);
    buffer_.append(kFooter);
    return buffer_.takeData();
  }

 private:
  // How one container leads to the next: by a key, or by an index when the key is null.
  struct Step {
    CFStringRef key;
    std::size_t index;
  };

  [[noreturn]] void fail(const std::string& cause) const {
    std::string place = depth_ == 0 ? " at the root" : " at ";
    for (std::size_t i = 0; i < depth_; ++i) {
      if (steps_[i].key == nullptr) {
        place += "[" + std::to_string(steps_[i].index) + "]";
      } else {
        place += (i == 0 ? "" : ".") + printable(utf8View(steps_[i].key));
      }
    }
    throw ListFailure{kCFPropertyListWriteInvalidError, cause + place};
  }

  void indent() {
    char* const to = buffer_.room(depth_);
    std::fill_n(to, depth_, '\t');
    buffer_.advanceTo(to + depth_);
  }

  void line(std::string_view text) {
    char* to = buffer_.room(depth_ + text.size() + 1);
    to = std::fill_n(to, depth_, '\t');
    to = std::copy(text.begin(), text.end(), to);
    *to++ = '\n';
    buffer_.advanceTo(to);
  }

  void value(CFTypeRef object) {
    if (object == nullptr) fail("No object");
    if (buffer_.size() > kLargestList) fail("The list is too large to be written");
    const CFRuntimeClass* const kind = head(object)->type;
    if (kind == &kCFStringClass) {
      text("<string>", static_cast<CFStringRef>(object), "</string>\n");
    } else if (kind == &kNumberClass) {
      number(static_cast<CFNumberRef>(object));
    } else if (kind == &kBooleanClass) {
      line(object == kCFBooleanTrue ? "<true/>" : "<false/>");
    } else if (kind == &kDictionaryClass) {
      dictionary(static_cast<CFDictionaryRef>(object));
    } else if (kind == &kArrayClass) {
      array(static_cast<CFArrayRef>(object));
    } else if (kind == &kDataClass) {
      data(static_cast<CFDataRef>(object));
    } else if (kind == &kDateClass) {
      date(static_cast<CFDateRef>(object));
    } else {
      fail("A " + std::string(head(object)->type->name) + " cannot stand in a property list:");
    }
  }

  void checkDepth() const {
    if (depth_ == kCFPropertyListMaximumDepth) {
      throw ListFailure{kCFPropertyListWriteInvalidError,
                        "More than " + std::to_string(depth_) + " containers inside one another, or one inside itself"};
    }
  }

  void dictionary(CFDictionaryRef dictionary) {
    checkDepth();
    if (CFDictionaryGetCount(dictionary) == 0) return line("<dict/>");
    line("<dict>");
    Step& step = steps_[depth_++];
    for (const DictionaryEntry& entry : entries(dictionary)) {
      if (entry.key == nullptr || !isString(entry.key)) {
        --depth_;
        fail("A dictionary with a key that is no string:");
      }
      step = {static_cast<CFStringRef>(entry.key), 0};
      text("<key>", step.key, "</key>\n");
      value(entry.value);
    }
    --depth_;
    line("</dict>");
  }

  void array(CFArrayRef array) {
    checkDepth();
    const auto values = items(array);
    if (values.empty()) return line("<array/>");
    line("<array>");
    Step& step = steps_[depth_++];
    step = {nullptr, 0};
    for (const void* const object : values) {
      value(object);
      ++step.index;
    }
    --depth_;
    line("</array>");
  }

  // A line with the string between the tags.
  void text(std::string_view open, CFStringRef string, std::string_view close) {
    const std::string_view bytes = utf8View(string);
    // Room for the case that nothing needs an escape; escapes ask for more.
    char* to = buffer_.room(depth_ + open.size() + bytes.size() + close.size());
    to = std::fill_n(to, depth_, '\t');
    to = std::copy(open.begin(), open.end(), to);
    const char* from = bytes.data();
    const char* const end = from + bytes.size();
    while (from != end && kCopied[static_cast<unsigned char>(*from)]) *to++ = *from++;
    buffer_.advanceTo(to);
    if (from != end) escape(from, end);
    buffer_.append(close);
  }

  void escape(const char* from, const char* end) {
    while (from != end) {
      const char* const special =
          std::find_if_not(from, end, [](char c) { return kCopied[static_cast<unsigned char>(c)]; });
      buffer_.append({from, static_cast<std::size_t>(special - from)});
      from = special == end ? end : special + escapeOne(special);
    }
  }

  // Writes the special character at `at` and gives its length in bytes.
  std::size_t escapeOne(const char* at) {
    const auto first = static_cast<unsigned char>(*at);
    if (first == '&' || first == '<' || first == '>' || first == '\r') {
      buffer_.append(first == '&' ? "&amp;" : first == '<' ? "&lt;" : first == '>' ? "&gt;" : "&#13;");
      return 1;
    }
    if (first < 0x80) refuse(first);
    const std::size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (length == 3) {
      const auto second = static_cast<unsigned char>(at[1]), third = static_cast<unsigned char>(at[2]);
      const std::uint32_t code = (first & 0x0Fu) << 12 | (second & 0x3Fu) << 6 | (third & 0x3Fu);
      if (!isXMLCharacter(code)) refuse(code);
    }
    buffer_.append({at, length});
    return length;
  }

  [[noreturn]] void refuse(std::uint32_t code) const {
    fail("A string with the character U+" + hexadecimal(code, 4) + ", which XML does not allow,");
  }

  void number(CFNumberRef number) {
    const NumberValue held = numberValue(number);
    const bool real = held.form == NumberForm::kReal;
    char* to = buffer_.room(depth_ + kLongestValueText + 32);
    to = std::fill_n(to, depth_, '\t');
    constexpr std::string_view kRealOpen = "<real>", kRealClose = "</real>\n";
    constexpr std::string_view kIntegerOpen = "<integer>", kIntegerClose = "</integer>\n";
    const std::string_view open = real ? kRealOpen : kIntegerOpen, close = real ? kRealClose : kIntegerClose;
    to = std::copy(open.begin(), open.end(), to);
    to = real ? writeReal(to, held.real) : writeInteger(to, held);
    buffer_.advanceTo(std::copy(close.begin(), close.end(), to));
  }

  void date(CFDateRef date) {
    char digits[kLongestValueText];
    const char* const end = writeDate(digits, CFDateGetAbsoluteTime(date));
    if (end == nullptr) fail("A date outside of the years 1 to 9999");
    indent();
    buffer_.append("<date>");
    buffer_.append({digits, static_cast<std::size_t>(end - digits)});
    buffer_.append("</date>\n");
  }

  void data(CFDataRef data) {
    line("<data>");
    const std::size_t width = std::max(kNarrowestLine, kLineWidth - std::min(kLineWidth, depth_ * 8));
    const std::size_t perLine = width / 4 * 3;
    auto rest = bytes(data);
    while (!rest.empty()) {
      const auto piece = rest.first(std::min(perLine, rest.size()));
      char* to = buffer_.room(depth_ + width + 4);
      to = std::fill_n(to, depth_, '\t');
      to = encodeBase64(piece.data(), piece.size(), to);
      *to++ = '\n';
      buffer_.advanceTo(to);
      rest = rest.subspan(piece.size());
    }
    line("</data>");
  }

  ListBuffer buffer_;
  std::size_t depth_ = 0;
  std::array<Step, kCFPropertyListMaximumDepth> steps_;  // the first depth_ of them lead to the place
};

}  // namespace

CFDataRef writeXMLList(CFPropertyListRef list) { return XMLWriter().write(list); }

}  // namespace cf
