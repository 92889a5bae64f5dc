// string_mutable.cpp: strings that change.
#include "platform/corefoundation/string_mutable.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>

#include "platform/corefoundation/string_utf8.h"

namespace cf {
namespace {

// A mutable string is the common layout with its buffer's size behind it.
struct MutableString {
  CFStringStorage base;
  std::size_t capacity;  // bytes that fit the buffer, the NUL apart; without a buffer 0
};

MutableString* storage(CFMutableStringRef string) { return reinterpret_cast<MutableString*>(string); }

constexpr std::uint32_t kEmptyInfo = kCFStringInfoMutable | kCFStringInfoASCII | kCFStringInfoWellFormed;

// Makes room for so many bytes and gives the buffer, which keeps its content.
char* reserve(CFMutableStringRef string, std::size_t byteCount) {
  MutableString* const it = storage(string);
  char* const old = it->capacity == 0 ? nullptr : const_cast<char*>(string->bytes);
  if (byteCount <= it->capacity) return old;
  const std::size_t capacity = std::max<std::size_t>({byteCount, it->capacity + it->capacity / 2, 31});
  char* const grown = static_cast<char*>(std::realloc(old, capacity + 1));
  if (grown == nullptr) throw std::bad_alloc();
  string->bytes = grown;
  it->capacity = capacity;
  return grown;
}

// Takes the facts of the bytes that came and went into the string's own. What leaves may leave a string that is all
// ASCII without its bit; it costs speed only, and an empty string gets it back.
void account(CFMutableStringRef string, const TextFacts& added, CFIndex removedUnits) {
  string->length += added.length - removedUnits;
  string->breadcrumb = 0;
  if (string->byteCount == 0) string->head.info = kEmptyInfo;
  if (!added.ascii) string->head.info &= ~std::uint32_t{kCFStringInfoASCII};
  if (!added.wellFormed) string->head.info &= ~std::uint32_t{kCFStringInfoWellFormed};
}

void setBytes(CFMutableStringRef string, std::string_view text) {
  char* const buffer = reserve(string, text.size());
  if (!text.empty()) std::memcpy(buffer, text.data(), text.size());
  if (buffer != nullptr) buffer[text.size()] = '\0';
  string->byteCount = static_cast<CFIndex>(text.size());
  string->length = 0;
  string->head.info = kEmptyInfo;
  account(string, measure(text), 0);
}

// Whether a text put between `before` and `after` can be spliced as bytes, no half of a pair meeting the other.
bool joinsCleanly(std::string_view before, std::string_view text, std::string_view after) {
  const std::string_view next = text.empty() ? after : text;
  const std::string_view previous = text.empty() ? before : text;
  return !(endsWithHighSurrogate(before) && beginsWithLowSurrogate(next)) &&
         !(endsWithHighSurrogate(previous) && beginsWithLowSurrogate(after));
}

bool pointsInto(std::string_view text, std::string_view whole) {
  return std::less_equal<>()(whole.data(), text.data()) && std::less<>()(text.data(), whole.data() + whole.size()) &&
         !text.empty();
}

}  // namespace

CFMutableStringRef createMutableString() {
  MutableString* const string =
      create<MutableString>(kCFStringClass, 0, "", CFIndex{0}, CFIndex{0}, CFHashCode{0}, uint64_t{0}, std::size_t{0});
  string->base.head.info = kEmptyInfo;
  return &string->base;
}

void freeBuffer(CFMutableStringRef string) noexcept {
  if (storage(string)->capacity != 0) std::free(const_cast<char*>(string->bytes));
}

void replaceRange(CFMutableStringRef string, CFRange range, std::string_view text) {
  const std::string_view whole = utf8View(string);
  if (pointsInto(text, whole)) return replaceRange(string, range, std::string(text));
  const Place from = placeOfIndex(string, range.location);
  const Place to = placeOfIndex(string, range.location + range.length);
  const std::string_view after = whole.substr(to.byte);
  if (from.insidePair || to.insidePair || !joinsCleanly(whole.substr(0, from.byte), text, after)) {
    std::string built;
    appendRange(built, string, CFRangeMake(0, range.location));
    appendText(built, text);
    const CFIndex end = range.location + range.length;
    appendRange(built, string, CFRangeMake(end, string->length - end));
    return setBytes(string, built);
  }
  const std::size_t byteCount = from.byte + text.size() + after.size();
  char* const buffer = reserve(string, byteCount);
  if (buffer == nullptr) return;  // nothing put into nothing
  std::memmove(buffer + from.byte + text.size(), buffer + to.byte, after.size());
  if (!text.empty()) std::memcpy(buffer + from.byte, text.data(), text.size());
  buffer[byteCount] = '\0';
  string->byteCount = static_cast<CFIndex>(byteCount);
  account(string, measure(text), range.length);
}

void replaceAll(CFMutableStringRef string, std::string_view text) {
  if (pointsInto(text, utf8View(string))) return setBytes(string, std::string(text));
  setBytes(string, text);
}

void append(CFMutableStringRef string, std::string_view text) {
  replaceRange(string, CFRangeMake(string->length, 0), text);
}

}  // namespace cf

using namespace cf;

namespace {

bool canChange(CFMutableStringRef string) { return string != nullptr && isMutableString(string); }

}  // namespace

CFMutableStringRef CFStringCreateMutable(CFAllocatorRef, CFIndex) { return createMutableString(); }

CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef, CFIndex, CFStringRef string) {
  if (string == nullptr) return nullptr;
  Owned<CFMutableStringRef> copy(createMutableString());
  replaceAll(copy.get(), utf8View(string));
  return copy.take();
}

void CFStringAppend(CFMutableStringRef string, CFStringRef appended) {
  if (canChange(string) && appended != nullptr) append(string, utf8View(appended));
}

void CFStringAppendCString(CFMutableStringRef string, const char* text, CFStringEncoding encoding) {
  const Owned<CFStringRef> appended(CFStringCreateWithCString(nullptr, text, encoding));
  CFStringAppend(string, appended.get());
}

void CFStringAppendCharacters(CFMutableStringRef string, const UniChar* characters, CFIndex count) {
  const Owned<CFStringRef> appended(CFStringCreateWithCharacters(nullptr, characters, count));
  CFStringAppend(string, appended.get());
}

void CFStringInsert(CFMutableStringRef string, CFIndex index, CFStringRef inserted) {
  CFStringReplace(string, CFRangeMake(index, 0), inserted);
}

void CFStringDelete(CFMutableStringRef string, CFRange range) {
  if (canChange(string)) replaceRange(string, clip(range, string->length), {});
}

void CFStringReplace(CFMutableStringRef string, CFRange range, CFStringRef replacement) {
  if (!canChange(string) || replacement == nullptr) return;
  replaceRange(string, clip(range, string->length), utf8View(replacement));
}

void CFStringReplaceAll(CFMutableStringRef string, CFStringRef replacement) {
  if (canChange(string) && replacement != nullptr) replaceAll(string, utf8View(replacement));
}
