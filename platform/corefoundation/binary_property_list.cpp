#include "platform/corefoundation/binary_property_list.h"

#include "platform/corefoundation/array.h"
#include "platform/corefoundation/data.h"
#include "platform/corefoundation/dictionary.h"
#include "platform/corefoundation/number.h"
#include "platform/corefoundation/property_list_failure.h"
#include "platform/corefoundation/string.h"
#include "platform/corefoundation/xml_property_list.h"

#include <CoreFoundation/CFDate.h>
#include <plist/plist.h>

#include <bit>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string_view>
#include <vector>

namespace cf {
namespace {

constexpr std::string_view kMagic = "bplist";
constexpr std::string_view kVersion = "00";

struct FreeNode {
  void operator()(void* node) const { plist_free(node); }
};
using Node = std::unique_ptr<void, FreeNode>;

struct FreeBlock {
  void operator()(void* block) const { std::free(block); }
};
template <class T>
using Block = std::unique_ptr<T, FreeBlock>;

// The objects of one container while they are collected.
class Objects {
 public:
  Objects() = default;
  Objects(const Objects&) = delete;
  Objects& operator=(const Objects&) = delete;
  ~Objects() {
    for (const void* const object : held_) release(object);
  }
  void push(Owned<CFTypeRef> object) {
    held_.push_back(object.get());
    object.take();
  }
  std::span<const void* const> all() const { return held_; }
  void handedOver() { held_.clear(); }

 private:
  std::vector<const void*> held_;
};

Owned<CFTypeRef> convert(plist_t node);

// The bytes of a single value in the binary format. libplist's own getters give dates in 32 bits and integers without
// their sign; its writer gives both as they are.
std::vector<std::uint8_t> binaryValue(plist_t node) {
  char* written = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(node, &written, &length);
  const Block<char> owner(written);
  if (written == nullptr || length < kMagic.size() + kVersion.size() + 1) throw std::bad_alloc();
  const std::size_t head = kMagic.size() + kVersion.size();
  return {reinterpret_cast<const std::uint8_t*>(written) + head,
          reinterpret_cast<const std::uint8_t*>(written) + length};
}

std::uint64_t bigEndian(const std::uint8_t* at) {
  std::uint64_t value = 0;
  for (int i = 0; i < 8; ++i) value = value << 8 | at[i];
  return value;
}

CFNumberRef convertInteger(plist_t node) {
  std::uint64_t value = 0;
  plist_get_uint_val(node, &value);
  constexpr std::uint8_t kSixteenBytes = 0x14;
  const bool large =
      value > std::uint64_t{std::numeric_limits<std::int64_t>::max()} && binaryValue(node).front() == kSixteenBytes;
  return large ? createUnsigned(value) : createInteger(static_cast<std::int64_t>(value));
}

CFDateRef convertDate(plist_t node) {
  const std::vector<std::uint8_t> value = binaryValue(node);
  return CFDateCreate(kCFAllocatorDefault, std::bit_cast<double>(bigEndian(value.data() + 1)));
}

CFStringRef createChecked(const char* utf8, std::size_t length) {
  const CFStringRef string = createString(std::string_view(utf8, length));
  if (string == nullptr) throw ListFailure{kCFPropertyListReadCorruptError, "A string of the binary list is not valid"};
  return string;
}

CFStringRef convertString(plist_t node) {
  std::uint64_t length = 0;
  const char* const utf8 = plist_get_string_ptr(node, &length);
  return createChecked(utf8 == nullptr ? "" : utf8, utf8 == nullptr ? 0 : static_cast<std::size_t>(length));
}

CFDataRef convertData(plist_t node) {
  std::uint64_t length = 0;
  const char* const held = plist_get_data_ptr(node, &length);
  return CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(held),
                      held == nullptr ? 0 : static_cast<CFIndex>(length));
}

CFArrayRef convertArray(plist_t node) {
  Objects objects;
  plist_array_iter created = nullptr;
  plist_array_new_iter(node, &created);
  const Block<void> iterator(created);
  plist_t item = nullptr;
  for (plist_array_next_item(node, created, &item); item != nullptr; plist_array_next_item(node, created, &item)) {
    objects.push(convert(item));
  }
  const CFArrayRef array = createArrayTaking(objects.all());
  objects.handedOver();
  return array;
}

CFDictionaryRef convertDictionary(plist_t node) {
  Objects keys, values;
  plist_dict_iter created = nullptr;
  plist_dict_new_iter(node, &created);
  const Block<void> iterator(created);
  for (;;) {
    char* name = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, created, &name, &item);
    const Block<char> owner(name);
    if (item == nullptr || name == nullptr) break;
    keys.push(Owned<CFTypeRef>(createChecked(name, std::string_view(name).size())));
    values.push(convert(item));
  }
  std::vector<KeyAndValue> pairs;
  pairs.reserve(values.all().size());
  for (std::size_t i = 0; i < values.all().size(); ++i) pairs.push_back({keys.all()[i], values.all()[i]});
  const CFDictionaryRef dictionary = createDictionaryTaking(pairs);
  keys.handedOver();
  values.handedOver();
  return dictionary;
}

// The depth is bounded by the check before.
Owned<CFTypeRef> convert(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t value = 0;
      plist_get_bool_val(node, &value);
      return Owned<CFTypeRef>(value != 0 ? kCFBooleanTrue : kCFBooleanFalse);
    }
    case PLIST_UINT:
      return Owned<CFTypeRef>(convertInteger(node));
    case PLIST_REAL: {
      double value = 0;
      plist_get_real_val(node, &value);
      return Owned<CFTypeRef>(createReal(value));
    }
    case PLIST_DATE:
      return Owned<CFTypeRef>(convertDate(node));
    case PLIST_STRING:
    case PLIST_KEY:
      return Owned<CFTypeRef>(convertString(node));
    case PLIST_DATA:
      return Owned<CFTypeRef>(convertData(node));
    case PLIST_ARRAY:
      return Owned<CFTypeRef>(convertArray(node));
    case PLIST_DICT:
      return Owned<CFTypeRef>(convertDictionary(node));
    default:
      throw ListFailure{kCFPropertyListReadCorruptError,
                        "The binary list holds an object that is no property-list kind"};
  }
}

std::string_view asText(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

bool isBinaryList(std::span<const std::uint8_t> bytes) { return asText(bytes).starts_with(kMagic); }

CFPropertyListRef readBinaryList(std::span<const std::uint8_t> bytes) {
  const std::string_view version = asText(bytes).substr(kMagic.size(), kVersion.size());
  if (version != kVersion) {
    throw ListFailure{kCFPropertyListReadUnknownVersionError,
                      "Binary property lists of version \"" + printable(version) + "\" are not supported, only of 00"};
  }
  if (bytes.size() > std::numeric_limits<std::uint32_t>::max()) {
    throw ListFailure{kCFPropertyListReadCorruptError, "The binary property list is too large to be read"};
  }
  checkBinaryList(bytes);
  plist_t parsed = nullptr;
  plist_from_bin(asText(bytes).data(), static_cast<std::uint32_t>(bytes.size()), &parsed);
  const Node root(parsed);
  if (root == nullptr) {
    throw ListFailure{kCFPropertyListReadCorruptError, "The binary property list is damaged"};
  }
  return convert(root.get()).take();
}

CFDataRef writeBinaryList(CFPropertyListRef list) {
  // libplist cannot be given a negative integer but by text, so the whole list goes there as XML.
  const Owned<CFDataRef> text(writeXMLList(list));
  const auto xml = bytes(text.get());
  plist_t parsed = nullptr;
  plist_from_xml(asText(xml).data(), static_cast<std::uint32_t>(xml.size()), &parsed);
  const Node root(parsed);
  char* written = nullptr;
  std::uint32_t length = 0;
  if (root != nullptr) plist_to_bin(root.get(), &written, &length);
  const Block<char> owner(written);
  if (written == nullptr) {
    throw ListFailure{kCFPropertyListWriteInvalidError, "libplist could not write the list in the binary format"};
  }
  return CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(written), static_cast<CFIndex>(length));
}

}  // namespace cf
