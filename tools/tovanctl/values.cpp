#include "tools/tovanctl/values.h"

#include <fmt/format.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "tools/support/text.h"
#include "tools/tovanctl/exit_code.h"

namespace tovanctl {
namespace {

std::string base64(const UInt8* bytes, std::size_t length) {
  static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (std::size_t at = 0; at < length; at += 3) {
    std::uint32_t group = 0;
    for (std::size_t offset = 0; offset < 3; ++offset) {
      group = group << 8U | (at + offset < length ? bytes[at + offset] : 0U);
    }
    for (std::size_t digit = 0; digit < 4; ++digit) {
      out += at + digit > length ? '=' : kAlphabet[group >> (18U - 6U * digit) & 63U];
    }
  }
  return out;
}

Json jsonOfReal(double real) {
  if (std::isfinite(real)) return real;
  return Json{{"real", std::isnan(real) ? "nan" : real > 0 ? "inf" : "-inf"}};
}

Json jsonOfNumber(CFNumberRef number) {
  double real = 0;
  if (CFNumberIsFloatType(number)) {
    CFNumberGetValue(number, kCFNumberDoubleType, &real);
    return jsonOfReal(real);
  }
  std::int64_t integer = 0;
  if (CFNumberGetValue(number, kCFNumberSInt64Type, &integer)) return integer;
  // An unsigned number beyond the signed ones: only its digits tell it exactly.
  const plinth::CSharedCFRef<CFStringRef> digits(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%@"), number));
  return std::strtoull(text(digits.get()).c_str(), nullptr, 10);
}

// "2026-11-20T18:00:00Z", with the fraction of the second down to microseconds when there is one.
Json jsonOfDate(CFDateRef date) {
  const CFAbsoluteTime at = std::round(CFDateGetAbsoluteTime(date) * 1e6) / 1e6;
  const CFGregorianDate day = CFAbsoluteTimeGetGregorianDate(at, nullptr);
  const double fraction = at - std::floor(at);
  std::string second = fmt::format("{:02}", static_cast<int>(day.second));
  if (fraction >= 5e-7) second += fmt::format("{:.6f}", fraction).substr(1);
  return Json{{"date", fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{}Z", static_cast<int>(day.year),
                                   static_cast<int>(day.month), static_cast<int>(day.day), static_cast<int>(day.hour),
                                   static_cast<int>(day.minute), second)}};
}

Json jsonOfDictionary(CFDictionaryRef dictionary) {
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
  std::vector<const void*> keys(count);
  std::vector<const void*> values(count);
  CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
  Json object = Json::object();
  for (std::size_t index = 0; index < count; ++index) {
    object[text(static_cast<CFStringRef>(keys[index]))] = json(values[index]);
  }
  return object;
}

Json jsonOfArray(CFArrayRef array) {
  Json list = Json::array();
  for (CFIndex index = 0; index < CFArrayGetCount(array); ++index) {
    list.push_back(json(CFArrayGetValueAtIndex(array, index)));
  }
  return list;
}

}  // namespace

std::string text(CFStringRef string) { return tools::textOf(string); }

plinth::CSharedCFRef<CFStringRef> string(const std::string& utf8) {
  plinth::CSharedCFRef<CFStringRef> made = tools::stringOf(utf8);
  if (!made) throw CommandError(kUsage, "an argument is not valid UTF-8");
  return made;
}

plinth::CSharedCFRef<CFArrayRef> arrayOfStrings(const std::vector<std::string>& strings) {
  const plinth::CSharedCFRef<CFMutableArrayRef> array(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
  for (const std::string& one : strings) CFArrayAppendValue(array.get(), string(one).get());
  return array;
}

Json json(CFTypeRef value) {
  if (value == nullptr) return nullptr;
  const CFTypeID kind = CFGetTypeID(value);
  if (kind == CFStringGetTypeID()) return text(static_cast<CFStringRef>(value));
  if (kind == CFBooleanGetTypeID()) return CFBooleanGetValue(static_cast<CFBooleanRef>(value)) != 0;
  if (kind == CFNumberGetTypeID()) return jsonOfNumber(static_cast<CFNumberRef>(value));
  if (kind == CFDictionaryGetTypeID()) return jsonOfDictionary(static_cast<CFDictionaryRef>(value));
  if (kind == CFArrayGetTypeID()) return jsonOfArray(static_cast<CFArrayRef>(value));
  if (kind == CFDateGetTypeID()) return jsonOfDate(static_cast<CFDateRef>(value));
  if (kind == CFDataGetTypeID()) {
    const auto data = static_cast<CFDataRef>(value);
    return Json{{"data", base64(CFDataGetBytePtr(data), static_cast<std::size_t>(CFDataGetLength(data)))}};
  }
  const plinth::CSharedCFRef<CFStringRef> description(CFCopyDescription(value));
  return text(description.get());
}

std::string cell(CFTypeRef value) {
  if (value == nullptr) return "-";
  const CFTypeID kind = CFGetTypeID(value);
  if (kind == CFStringGetTypeID()) return text(static_cast<CFStringRef>(value));
  if (kind == CFBooleanGetTypeID()) return CFBooleanGetValue(static_cast<CFBooleanRef>(value)) ? "yes" : "no";
  return json(value).dump();
}

}  // namespace tovanctl
