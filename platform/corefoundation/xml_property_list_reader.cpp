#include "platform/corefoundation/array.h"
#include "platform/corefoundation/base64.h"
#include "platform/corefoundation/data.h"
#include "platform/corefoundation/dictionary.h"
#include "platform/corefoundation/property_list_text.h"
#include "platform/corefoundation/string.h"
#include "platform/corefoundation/xml_property_list.h"
#include "platform/corefoundation/xml_property_list_scanner.h"

#include <array>
#include <memory>
#include <vector>

namespace cf {
namespace {

// Keys repeat from section to section: one object serves them all. A direct-mapped table: a newcomer takes the place of
// what is there, so that no input can make a look-up slow.
class KeyCache {
 public:
  ~KeyCache() {
    for (const CFStringRef key : keys_) {
      if (key != nullptr) release(key);
    }
  }
  // The caller owns the result.
  CFStringRef get(const XMLText& text) {
    const CFHashCode hash = hashBytes(text.bytes);
    CFStringRef& place = keys_[hash % keys_.size()];
    if (place == nullptr || stringHash(place) != hash || utf8View(place) != text.bytes) {
      const CFStringRef fresh = createString(text.bytes.data(), text.bytes.size(), text.ascii);
      fillHash(fresh, hash);
      if (place != nullptr) release(place);
      place = fresh;
    }
    // No other thread has seen the key yet, so it is counted without an atomic operation.
    ++head(place)->count;
    return place;
  }

 private:
  static void fillHash(CFStringRef fresh, CFHashCode hash) { const_cast<CFStringStorage*>(fresh)->hash = hash; }

  std::array<CFStringRef, 512> keys_{};
};

std::string_view withoutBlanks(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\n\r";
  const auto first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

class XMLReader {
 public:
  explicit XMLReader(std::span<const std::uint8_t> bytes)
      : scanner_(reinterpret_cast<const char*>(bytes.data()), bytes.size()) {
    open_.reserve(16);
    objects_.reserve(64);
    pairs_.reserve(128);
  }
  ~XMLReader() {
    for (const void* const object : objects_) release(object);
    for (const KeyAndValue& pair : pairs_) {
      release(pair.key);
      if (pair.value != nullptr) release(pair.value);
    }
  }
  XMLReader(const XMLReader&) = delete;
  XMLReader& operator=(const XMLReader&) = delete;

  CFPropertyListRef read() {
    const XMLTag first = scanner_.rootTag();
    if (first.closing) scanner_.fail(first.start, "</" + std::string(nameOf(first.element)) + "> that closes nothing");
    if (first.element != XMLElement::kPropertyList) return value(first).take();
    const XMLTag root = first.empty ? first : scanner_.nextTag(first.element, first.start);
    if (first.empty || (root.closing && root.element == first.element)) {
      scanner_.fail(root.start, "<plist> without a value");
    }
    if (root.closing) closesWrongly(root, first);
    Owned<CFTypeRef> list = value(root);
    const XMLTag last = scanner_.nextTag(first.element, first.start);
    if (!last.closing) scanner_.fail(last.start, "A second value inside <plist>");
    if (last.element != first.element) closesWrongly(last, first);
    return list.take();
  }

 private:
  // A container that has begun.
  struct Open {
    XMLTag tag;
    std::size_t base;  // where its objects, or pairs, begin in the stack of them
    const char* key;   // the start of the key that waits for its value, or null
  };

  [[noreturn]] void closesWrongly(const XMLTag& tag, const XMLTag& opened) const {
    scanner_.fail(tag.start, "</" + std::string(nameOf(tag.element)) + "> where </" +
                                 std::string(nameOf(opened.element)) + "> belongs");
  }

  // The value that begins with the tag, read to its end without recursion.
  Owned<CFTypeRef> value(const XMLTag& first) {
    begin(first);
    while (!open_.empty()) {
      const XMLTag tag = scanner_.nextTag(open_.back().tag.element, open_.back().tag.start);
      if (tag.closing) {
        end(tag);
      } else {
        begin(tag);
      }
    }
    return std::move(root_);
  }

  void begin(const XMLTag& tag) {
    switch (tag.element) {
      case XMLElement::kDictionary:
      case XMLElement::kArray:
        return beginContainer(tag);
      case XMLElement::kKey:
        return key(tag);
      case XMLElement::kPropertyList:
        scanner_.fail(tag.start, "<plist> inside the list");
      default:
        expectValue(tag);
        add(tag, leaf(tag));
    }
  }

  // Whether a value may stand at this place.
  void expectValue(const XMLTag& tag) const {
    if (open_.empty() || open_.back().tag.element == XMLElement::kArray || open_.back().key != nullptr) return;
    scanner_.fail(tag.start, "<" + std::string(nameOf(tag.element)) + "> without a <key> before it");
  }

  void beginContainer(const XMLTag& tag) {
    expectValue(tag);
    if (open_.size() == kCFPropertyListMaximumDepth) {
      scanner_.fail(tag.start,
                    "More than " + std::to_string(kCFPropertyListMaximumDepth) + " containers inside one another");
    }
    const bool dictionary = tag.element == XMLElement::kDictionary;
    open_.push_back({tag, dictionary ? pairs_.size() : objects_.size(), nullptr});
    if (tag.empty) finish();
  }

  void key(const XMLTag& tag) {
    if (open_.empty() || open_.back().tag.element != XMLElement::kDictionary) {
      scanner_.fail(tag.start, "<key> outside of a <dict>");
    }
    if (open_.back().key != nullptr) scanner_.fail(open_.back().key, "<key> without a value");
    Owned<CFStringRef> name(keys_.get(text(tag)));
    pairs_.push_back({name.get(), nullptr});
    name.take();
    open_.back().key = tag.start;
  }

  void end(const XMLTag& tag) {
    const Open& container = open_.back();
    if (tag.element != container.tag.element) closesWrongly(tag, container.tag);
    if (container.key != nullptr) scanner_.fail(container.key, "<key> without a value");
    finish();
  }

  // Makes the innermost container of what was read since it began.
  void finish() {
    const Open container = open_.back();
    Owned<CFTypeRef> made;
    if (container.tag.element == XMLElement::kDictionary) {
      made.reset(createDictionaryTaking(std::span(pairs_).subspan(container.base)));
      pairs_.resize(container.base);
    } else {
      made.reset(createArrayTaking(std::span<const void* const>(objects_).subspan(container.base)));
      objects_.resize(container.base);
    }
    open_.pop_back();
    add(container.tag, std::move(made));
  }

  void add(const XMLTag& tag, Owned<CFTypeRef> object) {
    if (open_.empty()) {
      root_ = std::move(object);
    } else if (open_.back().tag.element == XMLElement::kArray) {
      objects_.push_back(object.get());
      object.take();
    } else {
      static_cast<void>(tag);
      pairs_.back().value = object.take();
      open_.back().key = nullptr;
    }
  }

  XMLText text(const XMLTag& tag) { return tag.empty ? XMLText{{}, true} : scanner_.text(tag); }
  CFStringRef string(const XMLTag& tag) {
    const XMLText content = text(tag);
    return createString(content.bytes.data(), content.bytes.size(), content.ascii);
  }

  Owned<CFTypeRef> leaf(const XMLTag& tag) {
    switch (tag.element) {
      case XMLElement::kString:
        return Owned<CFTypeRef>(string(tag));
      case XMLElement::kInteger:
        return Owned<CFTypeRef>(integer(tag));
      case XMLElement::kReal:
        return Owned<CFTypeRef>(real(tag));
      case XMLElement::kDate:
        return Owned<CFTypeRef>(date(tag));
      case XMLElement::kData:
        return Owned<CFTypeRef>(data(tag));
      default:
        if (!withoutBlanks(text(tag).bytes).empty()) {
          scanner_.fail(tag.start, "Text inside <" + std::string(nameOf(tag.element)) + ">");
        }
        return Owned<CFTypeRef>(tag.element == XMLElement::kTrue ? kCFBooleanTrue : kCFBooleanFalse);
    }
  }

  void check(TextResult result, const XMLTag& tag, std::string_view text, const char* outOfRange) const {
    if (result == TextResult::kGood) return;
    const std::string quoted = "\"" + printable(text) + "\"";
    if (result == TextResult::kOutOfRange) scanner_.fail(tag.start, "The " + std::string(outOfRange) + ": " + quoted);
    scanner_.fail(tag.start, "<" + std::string(nameOf(tag.element)) + "> cannot hold " + quoted);
  }

  CFNumberRef integer(const XMLTag& tag) {
    const std::string_view digits = withoutBlanks(text(tag).bytes);
    NumberValue number{NumberForm::kSigned, {0}};
    check(parseInteger(digits, number), tag, digits, "integer is out of range");
    return number.form == NumberForm::kUnsigned ? createUnsigned(number.largeUnsigned) : createInteger(number.integer);
  }

  CFNumberRef real(const XMLTag& tag) {
    const std::string_view digits = withoutBlanks(text(tag).bytes);
    double number = 0;
    check(parseReal(digits, number), tag, digits, "real number is out of range");
    return createReal(number);
  }

  CFDateRef date(const XMLTag& tag) {
    const std::string_view digits = withoutBlanks(text(tag).bytes);
    CFAbsoluteTime moment = 0;
    check(parseDate(digits, moment), tag, digits, "date does not exist");
    return CFDateCreate(kCFAllocatorDefault, moment);
  }

  CFDataRef data(const XMLTag& tag) {
    const std::string_view encoded = text(tag).bytes;
    if (encoded.empty()) return createDataTaking(nullptr, 0);
    struct Free {
      void operator()(void* block) const { std::free(block); }
    };
    std::unique_ptr<std::uint8_t, Free> decoded(
        static_cast<std::uint8_t*>(std::malloc(base64DecodedBound(encoded.size()))));
    if (decoded == nullptr) throw std::bad_alloc();
    const Base64Decoded result = decodeBase64(encoded, decoded.get());
    if (result.wrong == encoded.data() + encoded.size())
      scanner_.fail(tag.start, "The base64 text is cut off in <data>");
    if (result.wrong != nullptr) {
      scanner_.fail(tag.start, "\"" + printable({result.wrong, 1}) + "\" where base64 does not allow it, in <data>");
    }
    if (result.count == 0) return createDataTaking(nullptr, 0);
    const CFDataRef made = createDataTaking(decoded.get(), static_cast<CFIndex>(result.count));
    static_cast<void>(decoded.release());
    return made;
  }

  XMLScanner scanner_;
  KeyCache keys_;
  std::vector<Open> open_;
  std::vector<const void*> objects_;  // of the arrays that have begun
  std::vector<KeyAndValue> pairs_;    // of the dictionaries that have begun; the last value may be missing
  Owned<CFTypeRef> root_;
};

}  // namespace

CFPropertyListRef readXMLList(std::span<const std::uint8_t> bytes) { return XMLReader(bytes).read(); }

}  // namespace cf
