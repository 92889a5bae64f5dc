// The operators of log_stream.h.
#include <tovan/log_stream.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <ostream>

namespace tovan {
namespace {

using OStream = CTovanLogger::OStream;

// Not for messages that are filtered out: they cost nothing.
template <class Write>
OStream& unlessNull(OStream& stream, Write write) {
  if (stream.kind() != CTovanLogger::kStreamKindNull) write();
  return stream;
}

template <class... Format>
OStream& putNumber(OStream& stream, std::string_view prefix, Format... format) {
  return unlessNull(stream, [&] {
    std::array<char, 64> text;
    char* const start = std::copy(prefix.begin(), prefix.end(), text.data());
    const char* const end = std::to_chars(start, text.data() + text.size(), format...).ptr;
    stream.append({text.data(), static_cast<std::size_t>(end - text.data())});
  });
}

// As "%g" prints it.
template <class Value>
OStream& putFloatingPoint(OStream& stream, Value value) {
  return putNumber(stream, "", value, std::chars_format::general, 6);
}

}  // namespace

OStream& operator<<(OStream& stream, const char* text) {
  return unlessNull(stream, [&] { stream.write(text != nullptr ? text : "null"); });
}

OStream& operator<<(OStream& stream, std::string_view text) {
  stream.write(text);
  return stream;
}

OStream& operator<<(OStream& stream, char character) { return stream << std::string_view(&character, 1); }

OStream& operator<<(OStream& stream, const plinth::CStringRef& text) {
  return unlessNull(stream, [&] { stream.write(text ? text->str() : std::string("null")); });
}

OStream& operator<<(OStream& stream, const plinth::CURLRef& url) {
  return unlessNull(stream, [&] { stream << (url ? url->getString() : plinth::CStringRef()); });
}

OStream& operator<<(OStream& stream, bool value) { return stream << (value ? "true" : "false"); }

OStream& operator<<(OStream& stream, const CTimeStamp& moment) {
  return unlessNull(stream, [&] { stream.write(std::string(moment.getText()) + ": "); });
}

OStream& operator<<(OStream& stream, short value) { return putNumber(stream, "", value); }
OStream& operator<<(OStream& stream, unsigned short value) { return putNumber(stream, "", value); }
OStream& operator<<(OStream& stream, int value) { return putNumber(stream, "", value); }
OStream& operator<<(OStream& stream, unsigned int value) { return putNumber(stream, "", value); }
OStream& operator<<(OStream& stream, long value) { return putNumber(stream, "", value); }
OStream& operator<<(OStream& stream, unsigned long value) { return putNumber(stream, "", value); }
OStream& operator<<(OStream& stream, long long value) { return putNumber(stream, "", value); }
OStream& operator<<(OStream& stream, unsigned long long value) { return putNumber(stream, "", value); }
OStream& operator<<(OStream& stream, float value) { return putFloatingPoint(stream, static_cast<double>(value)); }
OStream& operator<<(OStream& stream, double value) { return putFloatingPoint(stream, value); }
OStream& operator<<(OStream& stream, long double value) { return putFloatingPoint(stream, value); }

OStream& operator<<(OStream& stream, const void* address) {
  return putNumber(stream, address != nullptr ? "0x" : "", reinterpret_cast<std::uintptr_t>(address), 16);
}

OStream& operator<<(OStream& stream, const plinth::CXMLService& element) {
  stream.writeElement(element);
  return stream;
}

OStream& operator<<(OStream& stream, const plinth::CXMLServiceRef& element) {
  if (element) stream.writeElement(*element);
  return stream;
}

OStream& endl(OStream& stream) {
  stream.write("\n");
  return flush(stream);
}

OStream& flush(OStream& stream) {
  stream.flush();
  return stream;
}

OStream& operator<<(OStream& stream, std::ostream& (*manipulator)(std::ostream&)) {
  using Manipulator = std::ostream& (*)(std::ostream&);
  if (manipulator == static_cast<Manipulator>(std::endl)) return endl(stream);
  if (manipulator == static_cast<Manipulator>(std::flush)) return flush(stream);
  return stream;
}

}  // namespace tovan
