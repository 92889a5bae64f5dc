#include "platform/corefoundation/number_compare.h"

#include <bit>

#include "platform/corefoundation/base.h"

namespace cf {
namespace {

template <class T>
CFComparisonResult compare(T left, T right) noexcept {
  return left < right ? kCFCompareLessThan : left > right ? kCFCompareGreaterThan : kCFCompareEqualTo;
}

CFComparisonResult reversed(CFComparisonResult result) noexcept { return static_cast<CFComparisonResult>(-result); }

CFComparisonResult compareReals(double left, double right) noexcept {
  if (std::isnan(left) || std::isnan(right)) return compare<int>(!std::isnan(left), !std::isnan(right));
  return compare(left, right);
}

CFComparisonResult compareSignedToReal(std::int64_t integer, double real) noexcept {
  constexpr double above = powerOfTwoAbove<std::int64_t>();
  if (std::isnan(real) || real < -above) return kCFCompareGreaterThan;
  if (real >= above) return kCFCompareLessThan;
  const double whole = std::trunc(real);
  const CFComparisonResult result = compare(integer, static_cast<std::int64_t>(whole));
  return result != kCFCompareEqualTo ? result : compare(whole, real);
}

// Reals that large have no fraction.
CFComparisonResult compareUnsignedToReal(std::uint64_t integer, double real) noexcept {
  if (std::isnan(real) || real < powerOfTwoAbove<std::int64_t>()) return kCFCompareGreaterThan;
  if (real >= powerOfTwoAbove<std::uint64_t>()) return kCFCompareLessThan;
  return compare(integer, static_cast<std::uint64_t>(real));
}

CFComparisonResult compareToReal(const NumberValue& integer, double real) noexcept {
  return integer.form == NumberForm::kSigned ? compareSignedToReal(integer.integer, real)
                                             : compareUnsignedToReal(integer.largeUnsigned, real);
}

}  // namespace

CFComparisonResult compareNumbers(const NumberValue& left, const NumberValue& right) noexcept {
  const bool leftIsReal = left.form == NumberForm::kReal;
  const bool rightIsReal = right.form == NumberForm::kReal;
  if (leftIsReal && rightIsReal) return compareReals(left.real, right.real);
  if (rightIsReal) return compareToReal(left, right.real);
  if (leftIsReal) return reversed(compareToReal(right, left.real));
  if (left.form != right.form) return left.form == NumberForm::kSigned ? kCFCompareLessThan : kCFCompareGreaterThan;
  if (left.form == NumberForm::kSigned) return compare(left.integer, right.integer);
  return compare(left.largeUnsigned, right.largeUnsigned);
}

CFHashCode hashOfNumber(const NumberValue& value) noexcept {
  if (value.form == NumberForm::kSigned) return mixBits(static_cast<std::uint64_t>(value.integer));
  if (value.form == NumberForm::kUnsigned) return mixBits(value.largeUnsigned);
  if (std::isnan(value.real)) return mixBits(std::bit_cast<std::uint64_t>(std::numeric_limits<double>::quiet_NaN()));
  if (value.real == std::trunc(value.real)) {
    constexpr double above = powerOfTwoAbove<std::int64_t>();
    if (value.real >= -above && value.real < above) {
      return mixBits(static_cast<std::uint64_t>(static_cast<std::int64_t>(value.real)));
    }
    if (value.real >= above && value.real < powerOfTwoAbove<std::uint64_t>()) {
      return mixBits(static_cast<std::uint64_t>(value.real));
    }
  }
  return mixBits(std::bit_cast<std::uint64_t>(value.real));
}

}  // namespace cf
