#include "platform/corefoundation/string_format_arguments.h"

#include <cstdint>
#include <cstring>

namespace cf {
namespace {

using Size = FormatSpec::Size;
using Source = FormatSpec::Source;

bool isOneOf(char conversion, const char* set) { return std::strchr(set, conversion) != nullptr; }

}  // namespace

ArgumentKind integerKind(Size size) {
  switch (size) {
    case Size::l:
      return ArgumentKind::longInteger;
    case Size::ll:
    case Size::longDouble:
      return ArgumentKind::longLong;
    case Size::j:
      return sizeof(intmax_t) == sizeof(long) ? ArgumentKind::longInteger : ArgumentKind::longLong;
    case Size::z:
      return sizeof(size_t) == sizeof(int) ? ArgumentKind::integer : ArgumentKind::longInteger;
    case Size::t:
      return sizeof(ptrdiff_t) == sizeof(int) ? ArgumentKind::integer : ArgumentKind::longInteger;
    default:
      return ArgumentKind::integer;
  }
}

ArgumentKind argumentKind(const FormatSpec& spec) {
  if (spec.conversion == '%') return ArgumentKind::none;
  if (isOneOf(spec.conversion, "sSp@n")) return ArgumentKind::pointer;
  if (isOneOf(spec.conversion, "cC")) return ArgumentKind::integer;
  if (isOneOf(spec.conversion, "fFeEgGaA"))
    return spec.size == Size::longDouble ? ArgumentKind::longReal : ArgumentKind::real;
  return integerKind(spec.size);
}

FormatArguments::FormatArguments(std::string_view format, va_list list) {
  va_copy(list_, list);
  if (format.find('$') != std::string_view::npos) takeAll(format);
}

Argument FormatArguments::get(const FormatSpec::Field& field, ArgumentKind kind) {
  if (field.source == Source::number) return Argument{field.number, 0, nullptr};
  if (!positional_) return take(kind);
  return values_[index(field)];
}

std::size_t FormatArguments::index(const FormatSpec::Field& field) {
  return field.number > 0 ? static_cast<std::size_t>(field.number - 1) : next_++;
}

void FormatArguments::note(const FormatSpec::Field& field, ArgumentKind kind) {
  if (field.source != Source::argument || kind == ArgumentKind::none) return;
  const std::size_t place = index(field);
  if (place >= kinds_.size()) kinds_.resize(place + 1, ArgumentKind::none);
  if (kinds_[place] == ArgumentKind::none) kinds_[place] = kind;
}

void FormatArguments::takeAll(std::string_view format) {
  FormatSpec spec;
  for (std::size_t at = format.find('%'); at != std::string_view::npos; at = format.find('%', at)) {
    if (!parseFormatSpec(format, ++at, spec)) break;
    note(spec.width, ArgumentKind::integer);
    note(spec.precision, ArgumentKind::integer);
    note(spec.value, argumentKind(spec));
  }
  // An argument that no conversion names is taken for an int.
  for (const ArgumentKind kind : kinds_)
    values_.push_back(take(kind == ArgumentKind::none ? ArgumentKind::integer : kind));
  next_ = 0;
  positional_ = true;
}

// The list is the constructor's copy, and two of the types are one on some machines: the checker knows neither.
// NOLINTBEGIN(clang-analyzer-valist.Uninitialized, bugprone-branch-clone)
Argument FormatArguments::take(ArgumentKind kind) {
  Argument value;
  switch (kind) {
    case ArgumentKind::none:
      break;
    case ArgumentKind::integer:
      value.integer = va_arg(list_, int);
      break;
    case ArgumentKind::longInteger:
      value.integer = va_arg(list_, long);
      break;
    case ArgumentKind::longLong:
      value.integer = va_arg(list_, long long);
      break;
    case ArgumentKind::real:
      value.real = va_arg(list_, double);
      break;
    case ArgumentKind::longReal:
      value.real = va_arg(list_, long double);
      break;
    case ArgumentKind::pointer:
      value.pointer = va_arg(list_, const void*);
      break;
  }
  return value;
}
// NOLINTEND(clang-analyzer-valist.Uninitialized, bugprone-branch-clone)

}  // namespace cf
