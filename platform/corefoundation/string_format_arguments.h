// string_format_arguments.h: the arguments of a format.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <string_view>
#include <vector>

#include "platform/corefoundation/string_format.h"

namespace cf {

// The types that arguments have once C has promoted them.
enum class ArgumentKind : unsigned char { none, integer, longInteger, longLong, real, longReal, pointer };

struct Argument {
  long long integer = 0;
  long double real = 0;
  const void* pointer = nullptr;
};

// What a conversion takes as its value; of integers, by their size.
ArgumentKind argumentKind(const FormatSpec& spec);
ArgumentKind integerKind(FormatSpec::Size size);

// The arguments, one after the other or, in a format with positions, all taken beforehand. They are the caller's
// until this goes.
class FormatArguments {
 public:
  FormatArguments(std::string_view format, va_list list);
  ~FormatArguments() { va_end(list_); }  // NOLINT(clang-analyzer-valist.Uninitialized): copied by the constructor
  FormatArguments(const FormatArguments&) = delete;
  FormatArguments& operator=(const FormatArguments&) = delete;

  // What a field of a conversion stands for. Called for the fields in the order width, precision, value.
  Argument get(const FormatSpec::Field& field, ArgumentKind kind);

 private:
  std::size_t index(const FormatSpec::Field& field);
  void note(const FormatSpec::Field& field, ArgumentKind kind);
  void takeAll(std::string_view format);
  Argument take(ArgumentKind kind);

  va_list list_;
  bool positional_ = false;
  std::size_t next_ = 0;
  std::vector<ArgumentKind> kinds_;
  std::vector<Argument> values_;
};

}  // namespace cf
