#include "tests/support/property_list_support.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace test {
namespace {

const char* const kBefore =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
const char* const kBehind = "</plist>\n";

std::string hexadecimal(const std::string& raw) {
  std::string result;
  for (const char c : raw) {
    result += "0123456789abcdef"[static_cast<unsigned char>(c) >> 4];
    result += "0123456789abcdef"[static_cast<unsigned char>(c) & 15];
  }
  return result;
}

std::string canonicalNumber(CFNumberRef number) {
  if (CFNumberIsFloatType(number)) {
    double real = 0;
    CFNumberGetValue(number, kCFNumberDoubleType, &real);
    return std::isnan(real) ? "rnan" : "r" + std::to_string(std::bit_cast<std::uint64_t>(real));
  }
  std::int64_t integer = 0;
  if (CFNumberGetValue(number, kCFNumberSInt64Type, &integer)) return "i" + std::to_string(integer);
  return "i" + text(Held<CFStringRef>(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%@"), number)).get());
}

std::string canonicalDictionary(CFDictionaryRef dictionary) {
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
  std::vector<const void*> keys(count), values(count);
  CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
  std::string result = "{";
  for (std::size_t i = 0; i < count; ++i) result += canonical(keys[i]) + ":" + canonical(values[i]) + ",";
  return result + "}";
}

}  // namespace

std::string text(CFStringRef string) {
  if (string == nullptr) return "(null)";
  const CFIndex length = CFStringGetLength(string);
  CFIndex needed = 0;
  CFStringGetBytes(string, CFRangeMake(0, length), kCFStringEncodingUTF8, 0, false, nullptr, 0, &needed);
  std::string result(static_cast<std::size_t>(needed), '\0');
  CFStringGetBytes(string, CFRangeMake(0, length), kCFStringEncodingUTF8, 0, false,
                   reinterpret_cast<UInt8*>(result.data()), needed, &needed);
  return result;
}

Held<CFStringRef> string(const std::string& utf8) {
  return Held<CFStringRef>(CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(utf8.data()),
                                                   static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false));
}

Held<CFDataRef> data(const std::string& raw) {
  return Held<CFDataRef>(
      CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(raw.data()), static_cast<CFIndex>(raw.size())));
}

std::string bytes(CFDataRef data) {
  if (data == nullptr) return {};
  return {reinterpret_cast<const char*>(CFDataGetBytePtr(data)), static_cast<std::size_t>(CFDataGetLength(data))};
}

Parsed parse(const std::string& raw, CFOptionFlags options) {
  Parsed result;
  Held<CFErrorRef> error;
  result.list = Held<CFPropertyListRef>(
      CFPropertyListCreateWithData(nullptr, data(raw).get(), options, &result.format, error.out()));
  if (error) {
    result.code = CFErrorGetCode(error.get());
    result.domain = text(CFErrorGetDomain(error.get()));
    result.error = text(Held<CFStringRef>(CFErrorCopyDescription(error.get())).get());
  }
  return result;
}

Parsed parseValue(const std::string& value) { return parse(kBefore + value + "\n" + kBehind); }

Written write(CFPropertyListRef list, CFPropertyListFormat format) {
  Written result;
  Held<CFErrorRef> error;
  const Held<CFDataRef> written(CFPropertyListCreateData(nullptr, list, format, 0, error.out()));
  result.bytes = bytes(written.get());
  if (error) {
    result.code = CFErrorGetCode(error.get());
    result.error = text(Held<CFStringRef>(CFErrorCopyDescription(error.get())).get());
  }
  return result;
}

std::string writtenValue(CFPropertyListRef list) {
  const Written written = write(list);
  const std::size_t begin = std::strlen(kBefore), behind = std::strlen(kBehind);
  if (!written.bytes.starts_with(kBefore) || !written.bytes.ends_with(kBehind)) {
    return "(not a list: " + written.bytes + written.error + ")";
  }
  return written.bytes.substr(begin, written.bytes.size() - begin - behind);
}

std::string canonical(CFTypeRef object) {
  if (object == nullptr) return "(null)";
  const CFTypeID kind = CFGetTypeID(object);
  if (kind == CFBooleanGetTypeID()) return object == kCFBooleanTrue ? "T" : "F";
  if (kind == CFNumberGetTypeID()) return canonicalNumber(static_cast<CFNumberRef>(object));
  if (kind == CFStringGetTypeID()) return "s" + hexadecimal(text(static_cast<CFStringRef>(object)));
  if (kind == CFDataGetTypeID()) return "d" + hexadecimal(bytes(static_cast<CFDataRef>(object)));
  if (kind == CFDateGetTypeID()) {
    const double at = CFDateGetAbsoluteTime(static_cast<CFDateRef>(object));
    return "t" + std::to_string(static_cast<std::int64_t>(std::floor(at)));
  }
  if (kind == CFDictionaryGetTypeID()) return canonicalDictionary(static_cast<CFDictionaryRef>(object));
  if (kind != CFArrayGetTypeID()) return "(no property list)";
  const auto array = static_cast<CFArrayRef>(object);
  std::string result = "[";
  for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) result += canonical(CFArrayGetValueAtIndex(array, i)) + ",";
  return result + "]";
}

std::string ListMaker::randomText() {
  static const char* const kPieces[] = {"a",  "Z",   "0", " ", "\t",           "\n", "&", "<",        ">",
                                        "\"", "]]>", "'", "é", "\xEF\xBF\xBD", "日", "😀", "\xC2\x85", "&amp;"};
  std::string result;
  for (std::uint64_t count = below(24); count > 0; --count) result += kPieces[below(std::size(kPieces))];
  return result;
}

Held<CFTypeRef> ListMaker::leaf() {
  switch (below(6)) {
    case 0:
      return Held<CFTypeRef>(CFRetain(string(randomText()).get()));
    case 1: {
      const auto integer = static_cast<std::int64_t>(random_() >> below(64));
      return Held<CFTypeRef>(CFNumberCreate(nullptr, kCFNumberSInt64Type, &integer));
    }
    case 2: {
      double real = std::bit_cast<double>(random_());
      if (!std::isfinite(real)) real = 0.1;
      return Held<CFTypeRef>(CFNumberCreate(nullptr, kCFNumberDoubleType, &real));
    }
    case 3: {
      constexpr std::int64_t kFirst = -63113904000, kEnd = 252423993600;
      const auto at = kFirst + static_cast<std::int64_t>(below(static_cast<std::uint64_t>(kEnd - kFirst)));
      return Held<CFTypeRef>(CFDateCreate(nullptr, static_cast<double>(at)));
    }
    case 4: {
      std::string raw(below(200), '\0');
      for (char& c : raw) c = static_cast<char>(below(256));
      return Held<CFTypeRef>(CFRetain(test::data(raw).get()));
    }
    default:
      return Held<CFTypeRef>(below(2) == 0 ? kCFBooleanTrue : kCFBooleanFalse);
  }
}

Held<CFTypeRef> ListMaker::value(int& size, int depth) {
  --size;
  const std::uint64_t choice = depth > 20 ? 9 : below(10);
  if (choice < 3) return container(choice < 2, size, depth + 1);
  return leaf();
}

Held<CFTypeRef> ListMaker::container(bool dictionary, int& size, int depth) {
  Held<CFTypeRef> made(dictionary ? static_cast<CFTypeRef>(CFDictionaryCreateMutable(
                                        nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks))
                                  : CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
  for (std::uint64_t count = below(12); count > 0 && size > 0; --count) {
    const Held<CFTypeRef> held = value(size, depth);
    if (dictionary) {
      CFDictionarySetValue(static_cast<CFMutableDictionaryRef>(const_cast<void*>(made.get())),
                           string(randomText()).get(), held.get());
    } else {
      CFArrayAppendValue(static_cast<CFMutableArrayRef>(const_cast<void*>(made.get())), held.get());
    }
  }
  return made;
}

Held<CFPropertyListRef> ListMaker::make(int size) {
  Held<CFTypeRef> root(
      CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  for (int index = 0; size > 0; ++index) {
    const Held<CFTypeRef> held = value(size, 1);
    CFDictionarySetValue(static_cast<CFMutableDictionaryRef>(const_cast<void*>(root.get())),
                         string("key " + std::to_string(index)).get(), held.get());
  }
  return root;
}

}  // namespace test
