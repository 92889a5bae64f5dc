// string_search.cpp: finding text in strings, replacing it, and cutting strings apart at it.
#include "platform/corefoundation/string_search.h"

#include <algorithm>
#include <limits>
#include <string>
#include <string_view>

#include "platform/corefoundation/array.h"
#include "platform/corefoundation/string_case.h"
#include "platform/corefoundation/string_mutable.h"
#include "platform/corefoundation/string_utf8.h"

namespace cf {
namespace {

constexpr std::size_t kNowhere = std::string_view::npos;
constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();

// Positions of `text` in `whole`, in bytes or in UTF-16 code units.
template <class View>
std::vector<std::size_t> positions(View whole, View text, CFStringCompareFlags options, std::size_t limit) {
  const bool backwards = (options & kCFCompareBackwards) != 0;
  std::vector<std::size_t> found;
  if (text.size() > whole.size()) return found;
  if ((options & kCFCompareAnchored) != 0) {
    if (backwards ? whole.ends_with(text) : whole.starts_with(text)) {
      found.push_back(backwards ? whole.size() - text.size() : 0);
    }
    return found;
  }
  std::size_t at = backwards ? whole.rfind(text) : whole.find(text);
  while (at != kNowhere && found.size() < limit) {
    found.push_back(at);
    if (!backwards) {
      at = whole.find(text, at + text.size());
    } else {
      at = at < text.size() ? kNowhere : whole.rfind(text, at - text.size());
    }
  }
  if (backwards) std::reverse(found.begin(), found.end());
  return found;
}

std::u16string folded(std::u16string units) {
  for (char16_t& unit : units) unit = static_cast<char16_t>(foldCase(unit));
  return units;
}

// UTF-8 never finds a character inside another; but half a pair must be found inside a whole one.
bool canSearchBytes(CFStringRef text, CFStringCompareFlags options) {
  const std::string_view bytes = utf8View(text);
  return (options & kCFCompareCaseInsensitive) == 0 && !beginsWithLowSurrogate(bytes) && !endsWithHighSurrogate(bytes);
}

std::vector<CFRange> occurrencesOfBytes(CFStringRef string, CFRange range, CFStringRef text,
                                        CFStringCompareFlags options, std::size_t limit) {
  const Place from = placeOfIndex(string, range.location);
  const Place to = placeOfIndex(string, range.location + range.length);
  const bool anchored = (options & kCFCompareAnchored) != 0;
  const bool backwards = (options & kCFCompareBackwards) != 0;
  std::vector<CFRange> found;
  // Where the range begins (or ends) with half a pair, no whole character is anchored there.
  if (range.length == 0 || (anchored && (backwards ? to : from).insidePair)) return found;
  const std::size_t first = from.byte + (from.insidePair ? 4 : 0);
  if (first > to.byte) return found;
  const std::string_view whole = utf8View(string).substr(first, to.byte - first);
  for (const std::size_t at : positions(whole, utf8View(text), options, limit)) {
    found.push_back(CFRangeMake(indexOfByte(string, first + at), text->length));
  }
  return found;
}

}  // namespace

std::vector<CFRange> occurrences(CFStringRef string, CFRange range, CFStringRef text, CFStringCompareFlags options,
                                 std::size_t limit) {
  if (canSearchBytes(text, options)) return occurrencesOfBytes(string, range, text, options, limit);
  std::u16string whole = unitsOfRange(string, range);
  std::u16string wanted = unitsOfRange(text, CFRangeMake(0, text->length));
  if ((options & kCFCompareCaseInsensitive) != 0) {
    whole = folded(std::move(whole));
    wanted = folded(std::move(wanted));
  }
  std::vector<CFRange> found;
  for (const std::size_t at : positions<std::u16string_view>(whole, wanted, options, limit)) {
    found.push_back(CFRangeMake(range.location + static_cast<CFIndex>(at), text->length));
  }
  return found;
}

}  // namespace cf

using namespace cf;

Boolean CFStringFindWithOptions(CFStringRef string, CFStringRef text, CFRange rangeToSearch,
                                CFStringCompareFlags options, CFRange* result) {
  if (string == nullptr || text == nullptr || text->length == 0) return false;
  const std::vector<CFRange> found = occurrences(string, clip(rangeToSearch, string->length), text, options, 1);
  if (found.empty()) return false;
  if (result != nullptr) *result = found.front();
  return true;
}

CFRange CFStringFind(CFStringRef string, CFStringRef text, CFStringCompareFlags options) {
  CFRange found = CFRangeMake(kCFNotFound, 0);
  CFStringFindWithOptions(string, text, CFRangeMake(0, CFStringGetLength(string)), options, &found);
  return found;
}

CFIndex CFStringFindAndReplace(CFMutableStringRef string, CFStringRef text, CFStringRef replacement,
                               CFRange rangeToSearch, CFOptionFlags options) {
  if (string == nullptr || !isMutableString(string) || text == nullptr || replacement == nullptr) return 0;
  if (text->length == 0) return 0;
  const std::vector<CFRange> found = occurrences(string, clip(rangeToSearch, string->length), text, options, kNoLimit);
  if (found.empty()) return 0;
  std::string built;
  CFIndex behind = 0;
  for (const CFRange& place : found) {
    appendRange(built, string, CFRangeMake(behind, place.location - behind));
    appendRange(built, replacement, CFRangeMake(0, replacement->length));
    behind = place.location + place.length;
  }
  appendRange(built, string, CFRangeMake(behind, string->length - behind));
  replaceAll(string, built);
  return static_cast<CFIndex>(found.size());
}

void CFStringTrim(CFMutableStringRef string, CFStringRef text) {
  if (string == nullptr || !isMutableString(string) || text == nullptr || text->length == 0) return;
  CFRange kept = CFRangeMake(0, string->length);
  while (!occurrences(string, kept, text, kCFCompareAnchored, 1).empty()) {
    kept = CFRangeMake(kept.location + text->length, kept.length - text->length);
  }
  while (!occurrences(string, kept, text, kCFCompareAnchored | kCFCompareBackwards, 1).empty()) {
    kept.length -= text->length;
  }
  std::string built;
  appendRange(built, string, kept);
  replaceAll(string, built);
}

namespace {

bool isWhiteSpace(char32_t point) {
  return (point >= 0x09 && point <= 0x0D) || point == 0x20 || point == 0x85 || point == 0xA0 || point == 0x1680 ||
         (point >= 0x2000 && point <= 0x200A) || point == 0x2028 || point == 0x2029 || point == 0x202F ||
         point == 0x205F || point == 0x3000;
}

}  // namespace

void CFStringTrimWhitespace(CFMutableStringRef string) {
  if (string == nullptr || !isMutableString(string)) return;
  const char* const begin = string->bytes;
  const char* const end = begin + string->byteCount;
  const char* first = end;
  const char* last = end;
  for (const char* at = begin; at < end;) {
    const char* const here = at;
    if (isWhiteSpace(nextPoint(at))) continue;
    if (first == end) first = here;
    last = at;
  }
  replaceAll(string, std::string(first, first == end ? first : last));
}

CFArrayRef CFStringCreateArrayBySeparatingStrings(CFAllocatorRef, CFStringRef string, CFStringRef separator) {
  if (string == nullptr || separator == nullptr || separator->length == 0) return nullptr;
  std::vector<Owned<CFStringRef>> pieces;
  CFIndex behind = 0;
  const CFRange all = CFRangeMake(0, string->length);
  for (const CFRange& place : occurrences(string, all, separator, 0, kNoLimit)) {
    pieces.emplace_back(CFStringCreateWithSubstring(nullptr, string, CFRangeMake(behind, place.location - behind)));
    behind = place.location + place.length;
  }
  pieces.emplace_back(CFStringCreateWithSubstring(nullptr, string, CFRangeMake(behind, string->length - behind)));
  std::vector<const void*> objects;
  objects.reserve(pieces.size());
  for (const Owned<CFStringRef>& piece : pieces) objects.push_back(piece.get());
  const CFArrayRef array = createArrayTaking(objects);
  for (Owned<CFStringRef>& piece : pieces) piece.take();
  return array;
}

CFStringRef CFStringCreateByCombiningStrings(CFAllocatorRef, CFArrayRef strings, CFStringRef separator) {
  if (strings == nullptr) return nullptr;
  const Owned<CFMutableStringRef> built(createMutableString());
  const auto all = items(strings);
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (!isString(all[i])) return nullptr;
    if (i > 0) CFStringAppend(built.get(), separator);
    CFStringAppend(built.get(), static_cast<CFStringRef>(all[i]));
  }
  return createTrusted(utf8View(built.get()));
}
