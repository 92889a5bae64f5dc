// number.h: numbers as the property lists need them, beyond the C API.
#pragma once

#include <CoreFoundation/CFNumber.h>

#include <cstdint>

namespace cf {

// How a number's value is held.
enum class NumberForm : std::uint8_t { kSigned, kUnsigned, kReal };

struct NumberValue {
  NumberForm form;
  union {
    std::int64_t integer;         // kSigned
    std::uint64_t largeUnsigned;  // kUnsigned: always above INT64_MAX
    double real;                  // kReal
  };
};

// The caller owns what these give; small integers are constant objects.
CFNumberRef createInteger(std::int64_t value);    // a 64-bit number
CFNumberRef createUnsigned(std::uint64_t value);  // the same when it fits, else the unsigned form
CFNumberRef createReal(double value);             // a double

// The number must not be null.
NumberValue numberValue(CFNumberRef number);

}  // namespace cf
