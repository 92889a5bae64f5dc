#include "platform/corefoundation/number.h"

#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "platform/corefoundation/base.h"
#include "platform/corefoundation/number_compare.h"
#include "platform/corefoundation/string.h"

// The head's info holds the fixed-width CFNumberType in its low byte and the NumberForm in the next.
struct CFNumberStorage {
  CFObjectHead head;
  std::uint64_t bits;  // of the member of NumberValue that the form names
};

namespace cf {
namespace {

constexpr std::uint32_t infoOf(CFNumberType type, NumberForm form) noexcept {
  return static_cast<std::uint32_t>(type) | static_cast<std::uint32_t>(form) << 8;
}

bool numbersAreEqual(const void* left, const void* right) {
  return compareNumbers(numberValue(static_cast<CFNumberRef>(left)), numberValue(static_cast<CFNumberRef>(right))) ==
         kCFCompareEqualTo;
}

CFHashCode hashOfNumberObject(const void* number) {
  return hashOfNumber(numberValue(static_cast<CFNumberRef>(number)));
}

CFStringRef copyNumberDescription(const void* number) {
  const NumberValue value = numberValue(static_cast<CFNumberRef>(number));
  char text[32];
  std::to_chars_result end{};
  switch (value.form) {
    case NumberForm::kSigned:
      end = std::to_chars(text, text + sizeof text, value.integer);
      break;
    case NumberForm::kUnsigned:
      end = std::to_chars(text, text + sizeof text, value.largeUnsigned);
      break;
    case NumberForm::kReal:
      end = std::to_chars(text, text + sizeof text, value.real);
      break;
  }
  return createString(text, static_cast<std::size_t>(end.ptr - text), true);
}

}  // namespace

constinit const CFRuntimeClass kNumberClass{"CFNumber", nullptr, numbersAreEqual, hashOfNumberObject,
                                            copyNumberDescription};

namespace {

constexpr CFNumberStorage constantNumber(CFNumberType type, NumberForm form, std::uint64_t bits) noexcept {
  return {{&kNumberClass, kCFObjectIsConstant, infoOf(type, form)}, bits};
}

// The integers that configurations are full of are not allocated.
constexpr std::int64_t kLeastConstant = -1;
constexpr std::int64_t kGreatestConstant = 127;
using ConstantIntegers = std::array<CFNumberStorage, kGreatestConstant - kLeastConstant + 1>;

consteval ConstantIntegers makeConstantIntegers(CFNumberType type) {
  ConstantIntegers integers{};
  for (std::int64_t value = kLeastConstant; value <= kGreatestConstant; ++value) {
    integers[static_cast<std::size_t>(value - kLeastConstant)] =
        constantNumber(type, NumberForm::kSigned, static_cast<std::uint64_t>(value));
  }
  return integers;
}

constinit const ConstantIntegers constantIntegers32 = makeConstantIntegers(kCFNumberSInt32Type);
constinit const ConstantIntegers constantIntegers64 = makeConstantIntegers(kCFNumberSInt64Type);

constinit const CFNumberStorage positiveInfinity = constantNumber(
    kCFNumberFloat64Type, NumberForm::kReal, std::bit_cast<std::uint64_t>(std::numeric_limits<double>::infinity()));
constinit const CFNumberStorage negativeInfinity = constantNumber(
    kCFNumberFloat64Type, NumberForm::kReal, std::bit_cast<std::uint64_t>(-std::numeric_limits<double>::infinity()));
constinit const CFNumberStorage notANumber = constantNumber(
    kCFNumberFloat64Type, NumberForm::kReal, std::bit_cast<std::uint64_t>(std::numeric_limits<double>::quiet_NaN()));

CFNumberRef createNumber(CFNumberType type, NumberForm form, std::uint64_t bits) {
  CFNumberStorage* const number = create<CFNumberStorage>(kNumberClass, 0, bits);
  number->head.info = infoOf(type, form);
  return number;
}

CFNumberRef createSigned(CFNumberType type, std::int64_t value) {
  if (value >= kLeastConstant && value <= kGreatestConstant) {
    const auto index = static_cast<std::size_t>(value - kLeastConstant);
    if (type == kCFNumberSInt64Type) return &constantIntegers64[index];
    if (type == kCFNumberSInt32Type) return &constantIntegers32[index];
  }
  return createNumber(type, NumberForm::kSigned, static_cast<std::uint64_t>(value));
}

CFNumberRef createRealOfType(CFNumberType type, double value) {
  return createNumber(type, NumberForm::kReal, std::bit_cast<std::uint64_t>(value));
}

template <class T>
T read(const void* valuePtr) noexcept {
  T value;
  std::memcpy(&value, valuePtr, sizeof value);
  return value;
}

// The fixed-width type that stands for a type of this system; 0 for what is no type.
int fixedWidthType(CFNumberType type) noexcept {
  static_assert(sizeof(int) == 4 && sizeof(long) == 8 && sizeof(CFIndex) == 8);
  switch (type) {
    case kCFNumberSInt8Type:
    case kCFNumberCharType:
      return kCFNumberSInt8Type;
    case kCFNumberSInt16Type:
    case kCFNumberShortType:
      return kCFNumberSInt16Type;
    case kCFNumberSInt32Type:
    case kCFNumberIntType:
      return kCFNumberSInt32Type;
    case kCFNumberSInt64Type:
    case kCFNumberLongType:
    case kCFNumberLongLongType:
    case kCFNumberCFIndexType:
    case kCFNumberNSIntegerType:
      return kCFNumberSInt64Type;
    case kCFNumberFloat32Type:
    case kCFNumberFloatType:
      return kCFNumberFloat32Type;
    case kCFNumberFloat64Type:
    case kCFNumberDoubleType:
    case kCFNumberCGFloatType:
      return kCFNumberFloat64Type;
  }
  return 0;
}

}  // namespace

CFNumberRef createInteger(std::int64_t value) { return createSigned(kCFNumberSInt64Type, value); }

CFNumberRef createUnsigned(std::uint64_t value) {
  if (value <= static_cast<std::uint64_t>(INT64_MAX)) return createInteger(static_cast<std::int64_t>(value));
  return createNumber(kCFNumberSInt64Type, NumberForm::kUnsigned, value);
}

CFNumberRef createReal(double value) { return createRealOfType(kCFNumberFloat64Type, value); }

NumberValue numberValue(CFNumberRef number) {
  NumberValue value{};
  value.form = static_cast<NumberForm>(number->head.info >> 8);
  switch (value.form) {
    case NumberForm::kSigned:
      value.integer = static_cast<std::int64_t>(number->bits);
      break;
    case NumberForm::kUnsigned:
      value.largeUnsigned = number->bits;
      break;
    case NumberForm::kReal:
      value.real = std::bit_cast<double>(number->bits);
      break;
  }
  return value;
}

}  // namespace cf

constinit const CFNumberRef kCFNumberPositiveInfinity = &cf::positiveInfinity;
constinit const CFNumberRef kCFNumberNegativeInfinity = &cf::negativeInfinity;
constinit const CFNumberRef kCFNumberNaN = &cf::notANumber;

CFTypeID CFNumberGetTypeID() { return cf::typeID(cf::kNumberClass); }

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType type, const void* valuePtr) {
  if (valuePtr == nullptr) return nullptr;
  switch (cf::fixedWidthType(type)) {
    case kCFNumberSInt8Type:
      return cf::createSigned(kCFNumberSInt8Type, cf::read<std::int8_t>(valuePtr));
    case kCFNumberSInt16Type:
      return cf::createSigned(kCFNumberSInt16Type, cf::read<std::int16_t>(valuePtr));
    case kCFNumberSInt32Type:
      return cf::createSigned(kCFNumberSInt32Type, cf::read<std::int32_t>(valuePtr));
    case kCFNumberSInt64Type:
      return cf::createSigned(kCFNumberSInt64Type, cf::read<std::int64_t>(valuePtr));
    case kCFNumberFloat32Type:
      return cf::createRealOfType(kCFNumberFloat32Type, static_cast<double>(cf::read<float>(valuePtr)));
    case kCFNumberFloat64Type:
      return cf::createRealOfType(kCFNumberFloat64Type, cf::read<double>(valuePtr));
    default:
      return nullptr;
  }
}

CFNumberType CFNumberGetType(CFNumberRef number) {
  return number == nullptr ? kCFNumberSInt32Type : static_cast<CFNumberType>(number->head.info & 0xff);
}

CFIndex CFNumberGetByteSize(CFNumberRef number) {
  switch (CFNumberGetType(number)) {
    case kCFNumberSInt8Type:
      return 1;
    case kCFNumberSInt16Type:
      return 2;
    case kCFNumberSInt32Type:
    case kCFNumberFloat32Type:
      return 4;
    default:
      return 8;
  }
}

Boolean CFNumberIsFloatType(CFNumberRef number) {
  return number != nullptr && cf::numberValue(number).form == cf::NumberForm::kReal;
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* valuePtr) {
  if (number == nullptr || valuePtr == nullptr) return false;
  const cf::NumberValue value = cf::numberValue(number);
  switch (cf::fixedWidthType(type)) {
    case kCFNumberSInt8Type:
      return cf::storeNumber<std::int8_t>(value, valuePtr);
    case kCFNumberSInt16Type:
      return cf::storeNumber<std::int16_t>(value, valuePtr);
    case kCFNumberSInt32Type:
      return cf::storeNumber<std::int32_t>(value, valuePtr);
    case kCFNumberSInt64Type:
      return cf::storeNumber<std::int64_t>(value, valuePtr);
    case kCFNumberFloat32Type:
      return cf::storeNumber<float>(value, valuePtr);
    case kCFNumberFloat64Type:
      return cf::storeNumber<double>(value, valuePtr);
    default:
      return false;
  }
}

CFComparisonResult CFNumberCompare(CFNumberRef number, CFNumberRef other, void*) {
  if (number == nullptr || other == nullptr) {
    return number == other ? kCFCompareEqualTo : number == nullptr ? kCFCompareLessThan : kCFCompareGreaterThan;
  }
  return cf::compareNumbers(cf::numberValue(number), cf::numberValue(other));
}
