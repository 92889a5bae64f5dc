// number_compare.h: comparing, hashing and converting number values across their forms, without rounding.
#pragma once

#include "platform/corefoundation/number.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

namespace cf {

// By value; "not a number" equals itself and is less than everything else.
CFComparisonResult compareNumbers(const NumberValue& left, const NumberValue& right) noexcept;

// Equal values have equal hashes whatever their forms.
CFHashCode hashOfNumber(const NumberValue& value) noexcept;

template <class T>
constexpr double powerOfTwoAbove() noexcept {  // the least double above every T
  return 2.0 * static_cast<double>(std::uint64_t{1} << (std::numeric_limits<T>::digits - 1));
}

// The nearest T, and whether it is the value itself.
template <class T>
struct Converted {
  T value;
  bool exact;
};

template <class T>
Converted<T> toInteger(const NumberValue& number) noexcept {
  using Limits = std::numeric_limits<T>;
  switch (number.form) {
    case NumberForm::kSigned:
      if (number.integer < Limits::min()) return {Limits::min(), false};
      if (number.integer > Limits::max()) return {Limits::max(), false};
      return {static_cast<T>(number.integer), true};
    case NumberForm::kUnsigned:
      return {Limits::max(), false};
    case NumberForm::kReal:
      break;
  }
  if (std::isnan(number.real)) return {0, false};
  const double whole = std::trunc(number.real);
  if (whole < static_cast<double>(Limits::min())) return {Limits::min(), false};
  if (whole >= powerOfTwoAbove<T>()) return {Limits::max(), false};
  return {static_cast<T>(whole), whole == number.real};
}

template <class T>
Converted<T> toReal(const NumberValue& number) noexcept {
  switch (number.form) {
    case NumberForm::kSigned: {
      const T value = static_cast<T>(number.integer);
      const bool fits = static_cast<double>(value) < powerOfTwoAbove<std::int64_t>();
      return {value, fits && static_cast<std::int64_t>(value) == number.integer};
    }
    case NumberForm::kUnsigned: {
      const T value = static_cast<T>(number.largeUnsigned);
      const bool fits = static_cast<double>(value) < powerOfTwoAbove<std::uint64_t>();
      return {value, fits && static_cast<std::uint64_t>(value) == number.largeUnsigned};
    }
    case NumberForm::kReal:
      break;
  }
  constexpr double greatest = static_cast<double>(std::numeric_limits<T>::max());
  if (std::isfinite(number.real) && std::fabs(number.real) > greatest) {
    return {static_cast<T>(std::copysign(greatest, number.real)), false};
  }
  const T value = static_cast<T>(number.real);
  return {value, std::isnan(number.real) || static_cast<double>(value) == number.real};
}

// Stores the nearest T; false when it is not the value itself.
template <class T>
bool storeNumber(const NumberValue& number, void* valuePtr) noexcept {
  Converted<T> converted{};
  if constexpr (std::is_integral_v<T>) {
    converted = toInteger<T>(number);
  } else {
    converted = toReal<T>(number);
  }
  std::memcpy(valuePtr, &converted.value, sizeof converted.value);
  return converted.exact;
}

}  // namespace cf
