// Any bytes are read as a property list: an error, or a list. A list that was accepted
//  - is valid, can be written as XML and read back to an equal one, and copied to an equal one;
//  - is, as we write it, read by libplist to the same values;
//  - as it came in, read by libplist to the same values wherever libplist knows the notation that was used.
#include <CoreFoundation/CoreFoundation.h>
#include <plist/plist.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace {

[[noreturn]] void stop(const char* what) {
  std::fprintf(stderr, "property_list_fuzz: %s\n", what);
  std::abort();
}

void require(bool holds, const char* what) {
  if (!holds) stop(what);
}

template <class Ref>
class Held {
 public:
  explicit Held(Ref taken = nullptr) : object_(taken) {}
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;
  ~Held() {
    if (object_ != nullptr) CFRelease(object_);
  }
  Ref get() const { return object_; }
  Ref* out() { return &object_; }

 private:
  Ref object_;
};

std::string_view view(CFDataRef data) {
  return {reinterpret_cast<const char*>(CFDataGetBytePtr(data)), static_cast<std::size_t>(CFDataGetLength(data))};
}

std::string utf8(CFStringRef string) {
  const CFRange all = CFRangeMake(0, CFStringGetLength(string));
  CFIndex size = 0;
  CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false, nullptr, 0, &size);
  std::string text(static_cast<std::size_t>(size), '\0');
  CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false, reinterpret_cast<UInt8*>(text.data()), size, &size);
  return text;
}

// The value of a date node: libplist's getter has only 32 bits for it.
double dateOf(plist_t node) {
  char* binary = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(node, &binary, &length);
  require(binary != nullptr && length > 17, "libplist cannot write a date");
  std::uint64_t bits = 0;
  for (int i = 9; i < 17; ++i) bits = bits << 8 | static_cast<unsigned char>(binary[i]);
  std::free(binary);
  return std::bit_cast<double>(bits);
}

bool agree(CFTypeRef object, plist_t node);

bool numbersAgree(CFNumberRef number, plist_t node) {
  if (CFNumberIsFloatType(number)) {
    double ours = 0, theirs = 0;
    CFNumberGetValue(number, kCFNumberDoubleType, &ours);
    if (plist_get_node_type(node) != PLIST_REAL) return false;
    plist_get_real_val(node, &theirs);
    return ours == theirs || (std::isnan(ours) && std::isnan(theirs));
  }
  if (plist_get_node_type(node) != PLIST_UINT) return false;
  std::uint64_t theirs = 0;
  plist_get_uint_val(node, &theirs);
  std::int64_t ours = 0;
  // Above INT64_MAX the number saturates; libplist has the whole value then.
  if (!CFNumberGetValue(number, kCFNumberSInt64Type, &ours)) return theirs > static_cast<std::uint64_t>(INT64_MAX);
  return static_cast<std::uint64_t>(ours) == theirs;
}

bool dictionariesAgree(CFDictionaryRef dictionary, plist_t node) {
  if (plist_get_node_type(node) != PLIST_DICT ||
      plist_dict_get_size(node) != static_cast<std::uint32_t>(CFDictionaryGetCount(dictionary))) {
    return false;
  }
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  bool same = true;
  for (;;) {
    char* key = nullptr;
    plist_t value = nullptr;
    plist_dict_next_item(node, iterator, &key, &value);
    if (value == nullptr) break;
    const Held<CFStringRef> name(CFStringCreateWithCString(nullptr, key, kCFStringEncodingUTF8));
    std::free(key);
    const void* const ours = name.get() == nullptr ? nullptr : CFDictionaryGetValue(dictionary, name.get());
    same = same && ours != nullptr && agree(ours, value);
  }
  std::free(iterator);
  return same;
}

bool arraysAgree(CFArrayRef array, plist_t node) {
  if (plist_get_node_type(node) != PLIST_ARRAY ||
      plist_array_get_size(node) != static_cast<std::uint32_t>(CFArrayGetCount(array))) {
    return false;
  }
  plist_array_iter iterator = nullptr;
  plist_array_new_iter(node, &iterator);
  bool same = true;
  for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
    plist_t value = nullptr;
    plist_array_next_item(node, iterator, &value);
    same = same && value != nullptr && agree(CFArrayGetValueAtIndex(array, i), value);
  }
  std::free(iterator);
  return same;
}

bool agree(CFTypeRef object, plist_t node) {
  const CFTypeID kind = CFGetTypeID(object);
  const plist_type type = plist_get_node_type(node);
  if (kind == CFDictionaryGetTypeID()) return dictionariesAgree(static_cast<CFDictionaryRef>(object), node);
  if (kind == CFArrayGetTypeID()) return arraysAgree(static_cast<CFArrayRef>(object), node);
  if (kind == CFNumberGetTypeID()) return numbersAgree(static_cast<CFNumberRef>(object), node);
  if (kind == CFBooleanGetTypeID()) {
    return type == PLIST_BOOLEAN && plist_bool_val_is_true(node) == (object == kCFBooleanTrue ? 1 : 0);
  }
  if (kind == CFDateGetTypeID()) {
    return type == PLIST_DATE && dateOf(node) == std::floor(CFDateGetAbsoluteTime(static_cast<CFDateRef>(object)));
  }
  std::uint64_t length = 0;
  if (kind == CFDataGetTypeID()) {
    if (type != PLIST_DATA) return false;
    const char* const bytes = plist_get_data_ptr(node, &length);
    const std::string_view ours = view(static_cast<CFDataRef>(object));
    return ours.size() == length && (length == 0 || std::memcmp(ours.data(), bytes, ours.size()) == 0);
  }
  if (type != PLIST_STRING) return false;
  const char* const bytes = plist_get_string_ptr(node, &length);
  return utf8(static_cast<CFStringRef>(object)) == std::string_view(bytes, static_cast<std::size_t>(length));
}

// Whether libplist reads the list in the bytes to the same values; a list that it refuses counts as `refused`.
bool libplistAgrees(CFTypeRef list, std::string_view xml, bool refused) {
  plist_t theirs = nullptr;
  plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &theirs);
  if (theirs == nullptr) return refused;
  const bool same = agree(list, theirs);
  plist_free(theirs);
  return same;
}

// Whether the text keeps to what both readers take the same way: libplist neither joins texts around comments and
// sections, nor makes line ends newlines, nor minds blanks around numbers or leading zeros.
bool isCommonNotation(std::string_view text) {
  for (const char* special : {"\r", "<!--", "<![", "<?", "&#", "]]", "0x", "0X", "+"}) {
    if (text.find(special) != text.npos) return false;
  }
  for (const char* element : {"<integer>", "<real>", "<date>", "<data>"}) {
    const std::size_t length = std::strlen(element);
    for (auto at = text.find(element); at != text.npos; at = text.find(element, at + length)) {
      const char first = at + length < text.size() ? text[at + length] : '0';
      if (std::strchr(" \t\n0-", first) != nullptr) return false;
    }
  }
  // Nothing but the root and its end, on top of that.
  return text.starts_with("<plist>") && text.ends_with("</plist>");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const Held<CFDataRef> data(CFDataCreate(nullptr, bytes, static_cast<CFIndex>(size)));
  Held<CFErrorRef> error;
  CFPropertyListFormat format = kCFPropertyListOpenStepFormat;
  const Held<CFPropertyListRef> list(
      CFPropertyListCreateWithData(nullptr, data.get(), kCFPropertyListImmutable, &format, error.out()));
  require((list.get() == nullptr) != (error.get() == nullptr), "neither a list nor an error, or both");
  if (list.get() == nullptr) {
    const Held<CFStringRef> description(CFErrorCopyDescription(error.get()));
    require(CFStringGetLength(description.get()) > 0, "an error without a description");
    return 0;
  }

  const Held<CFPropertyListRef> copy(
      CFPropertyListCreateDeepCopy(nullptr, list.get(), kCFPropertyListMutableContainersAndLeaves));
  require(copy.get() != nullptr && CFEqual(copy.get(), list.get()), "the deep copy differs");

  const Held<CFDataRef> written(CFPropertyListCreateXMLData(nullptr, list.get()));
  const bool valid = CFPropertyListIsValid(list.get(), kCFPropertyListXMLFormat_v1_0);
  require(valid == (written.get() != nullptr), "validity and writing disagree");
  if (format == kCFPropertyListBinaryFormat_v1_0) return 0;  // may hold what XML cannot carry

  require(written.get() != nullptr, "what was read cannot be written");
  const Held<CFPropertyListRef> again(
      CFPropertyListCreateWithData(nullptr, written.get(), kCFPropertyListImmutable, nullptr, nullptr));
  require(again.get() != nullptr && CFEqual(again.get(), list.get()), "what was written reads differently");
  require(libplistAgrees(list.get(), view(written.get()), false), "libplist reads what was written differently");
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  if (isCommonNotation(text)) {
    require(libplistAgrees(list.get(), text, true), "libplist reads the input differently");
  }
  return 0;
}
