// string_compare.cpp: the order of strings.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "platform/corefoundation/string_case.h"
#include "platform/corefoundation/string_utf8.h"

using namespace cf;

namespace {

template <class Value>
CFComparisonResult order(Value left, Value right) {
  return left < right ? kCFCompareLessThan : left > right ? kCFCompareGreaterThan : kCFCompareEqualTo;
}

CFComparisonResult order(int difference) { return order(difference, 0); }

// The units of a range, one ahead, in the form in which they are compared.
class Units {
 public:
  Units(CFStringRef string, CFRange range, bool foldsCase) : units_(string, range), foldsCase_(foldsCase) { step(); }

  bool done() const { return done_; }
  char16_t unit() const { return unit_; }
  bool atDigit() const { return !done_ && unit_ >= u'0' && unit_ <= u'9'; }
  void step() {
    done_ = units_.done();
    if (done_) return;
    unit_ = units_.next();
    if (foldsCase_) unit_ = static_cast<char16_t>(foldCase(unit_));
  }
  // Passes the zeros that lead a run of digits and answers how many.
  CFIndex skipZeros() {
    CFIndex count = 0;
    for (; !done_ && unit_ == u'0'; ++count) step();
    return count;
  }

 private:
  UnitReader units_;
  bool foldsCase_;
  bool done_ = false;
  char16_t unit_ = 0;
};

// Two runs of digits, past their leading zeros, by value: the longer is the greater, else the first difference
// decides. Nothing is ever converted to a number, so that no run is too long.
CFComparisonResult compareRuns(Units& left, Units& right) {
  CFComparisonResult first = kCFCompareEqualTo;
  for (; left.atDigit() && right.atDigit(); left.step(), right.step()) {
    if (first == kCFCompareEqualTo) first = order(left.unit(), right.unit());
  }
  if (left.atDigit() != right.atDigit()) return left.atDigit() ? kCFCompareGreaterThan : kCFCompareLessThan;
  return first;
}

CFComparisonResult compareUnits(Units left, Units right, bool numerically) {
  // Decides only between strings that are equal in everything else.
  CFComparisonResult zeros = kCFCompareEqualTo;
  while (!left.done() && !right.done()) {
    if (numerically && left.atDigit() && right.atDigit()) {
      const CFIndex leftZeros = left.skipZeros();
      const CFComparisonResult moreZeros = order(leftZeros, right.skipZeros());
      if (const CFComparisonResult runs = compareRuns(left, right); runs != kCFCompareEqualTo) return runs;
      if (zeros == kCFCompareEqualTo) zeros = moreZeros;
      continue;
    }
    if (left.unit() != right.unit()) return order(left.unit(), right.unit());
    left.step();
    right.step();
  }
  if (left.done() && right.done()) return zeros;
  return left.done() ? kCFCompareLessThan : kCFCompareGreaterThan;
}

}  // namespace

CFComparisonResult CFStringCompare(CFStringRef left, CFStringRef right, CFStringCompareFlags options) {
  return CFStringCompareWithOptions(left, right, CFRangeMake(0, CFStringGetLength(left)), options);
}

CFComparisonResult CFStringCompareWithOptions(CFStringRef left, CFStringRef right, CFRange rangeOfLeft,
                                              CFStringCompareFlags options) {
  // A missing string comes before every string.
  if (left == nullptr || right == nullptr) return order((left != nullptr) - (right != nullptr));
  const CFRange range = clip(rangeOfLeft, left->length);
  const bool foldsCase = (options & kCFCompareCaseInsensitive) != 0;
  const bool numerically = (options & kCFCompareNumerically) != 0;
  if (!foldsCase && !numerically && isASCII(left) && isASCII(right)) {
    const std::string_view part =
        utf8View(left).substr(static_cast<std::size_t>(range.location), static_cast<std::size_t>(range.length));
    return order(part.compare(utf8View(right)));
  }
  const Units leftUnits(left, range, foldsCase);
  const Units rightUnits(right, CFRangeMake(0, right->length), foldsCase);
  return compareUnits(leftUnits, rightUnits, numerically);
}

Boolean CFStringHasPrefix(CFStringRef string, CFStringRef prefix) {
  if (string == nullptr || prefix == nullptr || prefix->length > string->length) return false;
  if (!endsWithHighSurrogate(utf8View(prefix))) return utf8View(string).starts_with(utf8View(prefix));
  return CFStringCompareWithOptions(string, prefix, CFRangeMake(0, prefix->length), 0) == kCFCompareEqualTo;
}

Boolean CFStringHasSuffix(CFStringRef string, CFStringRef suffix) {
  if (string == nullptr || suffix == nullptr || suffix->length > string->length) return false;
  if (!beginsWithLowSurrogate(utf8View(suffix))) return utf8View(string).ends_with(utf8View(suffix));
  const CFRange end = CFRangeMake(string->length - suffix->length, suffix->length);
  return CFStringCompareWithOptions(string, suffix, end, 0) == kCFCompareEqualTo;
}
