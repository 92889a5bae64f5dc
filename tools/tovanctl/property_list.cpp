// JSON as a property list.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <optional>

#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {
namespace {

using plinth::CSharedCFRef;
using Value = CSharedCFRef<CFTypeRef>;

constexpr int kLevels = 512;

[[noreturn]] void refuse(const std::string& why) { throw CommandError(kUsage, why); }

Value build(const Json& value, int levels);

Value number(CFNumberType type, const void* value) { return Value(CFNumberCreate(nullptr, type, value)); }

// 32 bits where they are enough: that is what programs of the cluster send for a small number.
Value integer(const Json& value) {
  if (value.is_number_unsigned() &&
      value.get<std::uint64_t>() > std::uint64_t{std::numeric_limits<std::int64_t>::max()}) {
    refuse("the number " + value.dump() + " is too large");
  }
  const auto wide = value.get<std::int64_t>();
  const auto narrow = static_cast<std::int32_t>(wide);
  return narrow == wide ? number(kCFNumberSInt32Type, &narrow) : number(kCFNumberSInt64Type, &wide);
}

int digitOf(char letter) {
  if (letter >= 'A' && letter <= 'Z') return letter - 'A';
  if (letter >= 'a' && letter <= 'z') return letter - 'a' + 26;
  if (letter >= '0' && letter <= '9') return letter - '0' + 52;
  return letter == '+' ? 62 : letter == '/' ? 63 : -1;
}

Value data(const std::string& base64) {
  const std::size_t end = base64.find_last_not_of('=') + 1;
  if (base64.size() % 4 != 0 || base64.size() - end > 2) refuse("\"" + base64 + "\" is no base64");
  std::string bytes;
  std::uint32_t group = 0;
  for (std::size_t at = 0; at < base64.size(); ++at) {
    const int digit = at < end ? digitOf(base64[at]) : 0;
    if (digit < 0) refuse("\"" + base64 + "\" is no base64");
    group = group << 6U | static_cast<std::uint32_t>(digit);
    if (at % 4 != 3) continue;
    for (const unsigned int shift : {16U, 8U, 0U}) bytes += static_cast<char>(group >> shift & 0xFFU);
    group = 0;
  }
  bytes.resize(bytes.size() - (base64.size() - end));
  return Value(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
}

Value date(const std::string& text) {
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  double second = 0;
  int length = 0;
  const int found =
      std::sscanf(text.c_str(), "%5d-%2d-%2dT%2d:%2d:%lfZ%n", &year, &month, &day, &hour, &minute, &second, &length);
  const CFGregorianDate parts{
      year,  static_cast<SInt8>(month), static_cast<SInt8>(day), static_cast<SInt8>(hour), static_cast<SInt8>(minute),
      second};
  if (found != 6 || static_cast<std::size_t>(length) != text.size() ||
      !CFGregorianDateIsValid(parts, kCFGregorianAllUnits)) {
    refuse("\"" + text + "\" is no date; one looks like \"2026-11-20T18:00:00Z\"");
  }
  return Value(CFDateCreate(nullptr, CFGregorianDateGetAbsoluteTime(parts, nullptr)));
}

Value real(const std::string& text) {
  double value = std::numeric_limits<double>::infinity();
  if (text == "-inf") {
    value = -value;
  } else if (text == "nan") {
    value = std::numeric_limits<double>::quiet_NaN();
  } else if (text != "inf") {
    refuse("\"" + text + "\" is none of \"nan\", \"inf\" and \"-inf\"");
  }
  return number(kCFNumberDoubleType, &value);
}

// The kinds that JSON lacks are objects of one member; an empty holder for any other object.
Value marked(const Json& object) {
  if (object.size() != 1 || !object.begin()->is_string()) return {};
  const std::string& key = object.begin().key();
  const auto& text = object.begin()->get_ref<const std::string&>();
  if (key == "data") return data(text);
  if (key == "date") return date(text);
  if (key == "real") return real(text);
  return {};
}

CSharedCFRef<CFDictionaryRef> dictionary(const Json& object, int levels) {
  const CSharedCFRef<CFMutableDictionaryRef> made(
      CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  for (const auto& [key, member] : object.items()) {
    CFDictionarySetValue(made.get(), string(key).get(), build(member, levels).get());
  }
  return made;
}

Value array(const Json& list, int levels) {
  const CSharedCFRef<CFMutableArrayRef> made(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
  for (const Json& element : list) CFArrayAppendValue(made.get(), build(element, levels).get());
  return Value::retaining(made.get());
}

Value build(const Json& value, int levels) {
  if (levels > kLevels) refuse("the JSON has more than " + std::to_string(kLevels) + " levels");
  switch (value.type()) {
    case Json::value_t::string:
      return Value::retaining(string(value.get<std::string>()).get());
    case Json::value_t::boolean:
      return Value::retaining(value.get<bool>() ? kCFBooleanTrue : kCFBooleanFalse);
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
      return integer(value);
    case Json::value_t::number_float: {
      const auto real64 = value.get<double>();
      return number(kCFNumberDoubleType, &real64);
    }
    case Json::value_t::object: {
      Value special = marked(value);
      return special ? special : Value::retaining(dictionary(value, levels + 1).get());
    }
    case Json::value_t::array:
      return array(value, levels + 1);
    default:
      refuse("null stands for nothing in a property list");
  }
}

}  // namespace

CSharedCFRef<CFDictionaryRef> propertyList(const Json& object) {
  if (!object.is_object()) refuse("a JSON object is wanted, such as '{\"cancelJobs\": true}'");
  return dictionary(object, 1);
}

}  // namespace tovanctl
