#include <cstring>

#include "platform/corefoundation/string_format.h"

namespace cf {
namespace {

constexpr int kMaximumPosition = 4096;

class Reader {
 public:
  Reader(std::string_view format, std::size_t at) : format_(format), at_(at) {}

  std::size_t at() const { return at_; }
  char peek() const { return at_ < format_.size() ? format_[at_] : '\0'; }
  char take() { return at_ < format_.size() ? format_[at_++] : '\0'; }
  bool skip(char wanted) {
    if (peek() != wanted) return false;
    ++at_;
    return true;
  }
  // A run of digits, which may be empty (0); nothing that fits int is lost, more is -1.
  int number() {
    long value = 0;
    while (peek() >= '0' && peek() <= '9') {
      const int digit = take() - '0';
      value = value < 0 || value > (kLimit - digit) / 10 ? -1 : value * 10 + digit;
    }
    return static_cast<int>(value);
  }
  // "12$": the position; 0, with nothing taken, when no position stands here.
  int position() {
    const std::size_t start = at_;
    const int value = number();
    if (at_ > start && skip('$')) return value == 0 ? -1 : value;
    at_ = start;
    return 0;
  }

 private:
  static constexpr long kLimit = 0x7FFFFFFF;
  std::string_view format_;
  std::size_t at_;
};

bool isPosition(int value) { return value >= 0 && value <= kMaximumPosition; }

void readFlags(Reader& reader, FormatSpec& spec) {
  std::size_t count = 0;
  while (reader.peek() != '\0' && std::strchr("-+ #0'", reader.peek()) != nullptr) {
    const char flag = reader.take();
    if (std::strchr(spec.flags, flag) != nullptr) continue;
    spec.flags[count++] = flag;
    spec.flags[count] = '\0';
  }
}

bool readField(Reader& reader, FormatSpec::Field& field) {
  if (reader.skip('*')) {
    field = {FormatSpec::Source::argument, reader.position()};
    return isPosition(field.number);
  }
  field = {FormatSpec::Source::number, reader.number()};
  return field.number >= 0;
}

FormatSpec::Size readSize(Reader& reader) {
  using Size = FormatSpec::Size;
  if (reader.skip('h')) return reader.skip('h') ? Size::hh : Size::h;
  if (reader.skip('l')) return reader.skip('l') ? Size::ll : Size::l;
  if (reader.skip('q')) return Size::ll;
  if (reader.skip('j')) return Size::j;
  if (reader.skip('z')) return Size::z;
  if (reader.skip('t')) return Size::t;
  if (reader.skip('L')) return Size::longDouble;
  return Size::none;
}

}  // namespace

bool parseFormatSpec(std::string_view format, std::size_t& at, FormatSpec& spec) {
  Reader reader(format, at);
  spec = FormatSpec{};
  spec.value.number = reader.position();
  if (!isPosition(spec.value.number)) return false;
  readFlags(reader, spec);
  const char next = reader.peek();
  if ((next == '*' || (next >= '1' && next <= '9')) && !readField(reader, spec.width)) return false;
  if (reader.skip('.') && !readField(reader, spec.precision)) return false;
  spec.size = readSize(reader);
  spec.conversion = reader.take();
  if (spec.conversion == '\0' || std::strchr("dDiuUxXoOcCsSpfFeEgGaA@n%", spec.conversion) == nullptr) return false;
  at = reader.at();
  return true;
}

}  // namespace cf
