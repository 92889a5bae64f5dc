// string_bytes.cpp: strings from the bytes of an encoding and back: C strings, buffers, data and paths.
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#include "platform/corefoundation/string_encoding.h"
#include "platform/corefoundation/string_utf8.h"

using namespace cf;

namespace {

CFStringRef createFromBytes(const std::uint8_t* bytes, std::size_t byteCount, CFStringEncoding name, bool external) {
  const std::optional<Encoding> encoding = findEncoding(name);
  if (!encoding) return nullptr;
  const bool plain = encoding->form == Encoding::Form::utf8 || encoding->form == Encoding::Form::ascii;
  if (plain && !external) {
    Owned<CFStringRef> string(createString({reinterpret_cast<const char*>(bytes), byteCount}));
    const bool wanted = string && (encoding->form == Encoding::Form::utf8 || isASCII(string.get()));
    return wanted ? string.take() : nullptr;
  }
  const std::optional<std::string> text = decode(*encoding, bytes, byteCount, external);
  return text ? createTrusted(*text) : nullptr;
}

// Whether the string's own bytes are its bytes in the encoding.
bool bytesAreIn(CFStringRef string, const Encoding& encoding) {
  if (isASCII(string)) return encoding.extendsASCII();
  return encoding.form == Encoding::Form::utf8 &&
         ((string->head.info & kCFStringInfoWellFormed) != 0 || measure(utf8View(string)).wellFormed);
}

// Fills a buffer, or only counts, and never goes beyond the end.
class Sink {
 public:
  Sink(std::uint8_t* buffer, CFIndex size)
      : buffer_(buffer), left_(buffer == nullptr ? std::numeric_limits<CFIndex>::max() : size) {}
  // All of the bytes or none.
  bool put(const void* bytes, std::size_t count) {
    if (left_ < static_cast<CFIndex>(count)) return false;
    if (buffer_ != nullptr && count != 0) std::memcpy(buffer_ + used_, bytes, count);
    used_ += static_cast<CFIndex>(count);
    left_ -= static_cast<CFIndex>(count);
    return true;
  }
  CFIndex used() const { return used_; }

 private:
  std::uint8_t* buffer_;
  CFIndex left_;
  CFIndex used_ = 0;
};

// Converts until the sink is full or the encoding lacks a character; the UTF-16 code units converted.
CFIndex convert(CFStringRef string, CFRange range, const Encoding& encoding, UInt8 lossByte, Sink& sink) {
  if (bytesAreIn(string, encoding)) {
    const Place from = placeOfIndex(string, range.location);
    const Place to = placeOfIndex(string, range.location + range.length);
    const bool whole = !from.insidePair && !to.insidePair;
    if (whole && sink.put(string->bytes + from.byte, to.byte - from.byte)) return range.length;
  }
  PointReader reader(string, range);
  while (!reader.done()) {
    const CFIndex before = reader.index();
    std::uint8_t bytes[kMaximumPointSize];
    std::size_t count = encodePointIn(encoding, reader.next(), bytes);
    if (count == 0 && lossByte != 0) {
      count = encodePointIn(encoding, lossByte, bytes);
      // A byte of an encoding of bytes is meant as it stands.
      if (encoding.unitSize() == 1 && encoding.form != Encoding::Form::utf8) {
        bytes[0] = lossByte;
        count = 1;
      }
    }
    if (count == 0 || !sink.put(bytes, count)) return before - range.location;
  }
  return range.length;
}

}  // namespace

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* text, CFStringEncoding encoding) {
  const std::optional<Encoding> found = findEncoding(encoding);
  if (text == nullptr || !found || found->unitSize() != 1) return nullptr;
  return createFromBytes(reinterpret_cast<const std::uint8_t*>(text), std::strlen(text), encoding, false);
}

CFStringRef CFStringCreateWithCStringNoCopy(CFAllocatorRef allocator, const char* text, CFStringEncoding encoding,
                                            CFAllocatorRef contentsDeallocator) {
  const CFStringRef string = CFStringCreateWithCString(allocator, text, encoding);
  if (string != nullptr && contentsDeallocator != kCFAllocatorNull) std::free(const_cast<char*>(text));
  return string;
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex byteCount, CFStringEncoding encoding,
                                    Boolean isExternalRepresentation) {
  if (byteCount < 0 || (bytes == nullptr && byteCount > 0)) return nullptr;
  return createFromBytes(bytes, static_cast<std::size_t>(byteCount), encoding, isExternalRepresentation != 0);
}

CFStringRef CFStringCreateFromExternalRepresentation(CFAllocatorRef allocator, CFDataRef data,
                                                     CFStringEncoding encoding) {
  if (data == nullptr) return nullptr;
  return CFStringCreateWithBytes(allocator, CFDataGetBytePtr(data), CFDataGetLength(data), encoding, true);
}

CFStringRef CFStringCreateWithFileSystemRepresentation(CFAllocatorRef allocator, const char* path) {
  return CFStringCreateWithCString(allocator, path, kCFStringEncodingUTF8);
}

CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding, UInt8 lossByte,
                         Boolean isExternalRepresentation, UInt8* buffer, CFIndex maxBufLen, CFIndex* usedBufLen) {
  if (usedBufLen != nullptr) *usedBufLen = 0;
  const std::optional<Encoding> found = findEncoding(encoding);
  if (string == nullptr || !found) return 0;
  Sink sink(buffer, maxBufLen);
  if (isExternalRepresentation != 0 && found->marked) {
    std::uint8_t mark[kMaximumPointSize];
    if (!sink.put(mark, encodePointIn(*found, 0xFEFF, mark))) return 0;
  }
  const CFIndex converted = convert(string, clip(range, string->length), *found, lossByte, sink);
  if (usedBufLen != nullptr) *usedBufLen = sink.used();
  return converted;
}

Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize, CFStringEncoding encoding) {
  if (buffer == nullptr || bufferSize <= 0) return false;
  buffer[0] = '\0';
  const std::optional<Encoding> found = findEncoding(encoding);
  if (string == nullptr || !found || found->unitSize() != 1) return false;
  Sink sink(reinterpret_cast<std::uint8_t*>(buffer), bufferSize - 1);
  const bool all = convert(string, CFRangeMake(0, string->length), *found, 0, sink) == string->length;
  buffer[all ? sink.used() : 0] = '\0';
  return all;
}

const char* CFStringGetCStringPtr(CFStringRef string, CFStringEncoding encoding) {
  const std::optional<Encoding> found = findEncoding(encoding);
  return string != nullptr && found && bytesAreIn(string, *found) ? string->bytes : nullptr;
}

CFDataRef CFStringCreateExternalRepresentation(CFAllocatorRef allocator, CFStringRef string, CFStringEncoding encoding,
                                               UInt8 lossByte) {
  if (string == nullptr || !findEncoding(encoding)) return nullptr;
  const CFRange all = CFRangeMake(0, string->length);
  CFIndex byteCount = 0;
  const CFIndex converted = CFStringGetBytes(string, all, encoding, lossByte, true, nullptr, 0, &byteCount);
  if (converted < string->length) return nullptr;
  std::string bytes(static_cast<std::size_t>(byteCount), '\0');
  auto* const buffer = reinterpret_cast<UInt8*>(bytes.data());
  CFStringGetBytes(string, all, encoding, lossByte, true, buffer, byteCount, &byteCount);
  return CFDataCreate(allocator, buffer, byteCount);
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding) {
  const std::optional<Encoding> found = findEncoding(encoding);
  if (!found || length < 0) return kCFNotFound;
  // In UTF-8 three bytes hold one code unit, and four hold two.
  const CFIndex perUnit = found->form == Encoding::Form::utf8 ? 3 : found->unitSize();
  CFIndex size;
  return __builtin_mul_overflow(length, perUnit, &size) ? CFIndex{kCFNotFound} : size;
}

CFIndex CFStringGetMaximumSizeOfFileSystemRepresentation(CFStringRef string) {
  const CFIndex size = CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8);
  return size == kCFNotFound ? size : size + 1;
}

Boolean CFStringGetFileSystemRepresentation(CFStringRef string, char* buffer, CFIndex maxBufLen) {
  if (buffer != nullptr && maxBufLen > 0) buffer[0] = '\0';
  if (string == nullptr || utf8View(string).find('\0') != std::string_view::npos) return false;
  return CFStringGetCString(string, buffer, maxBufLen, kCFStringEncodingUTF8);
}

CFStringEncoding CFStringGetSystemEncoding(void) { return kCFStringEncodingUTF8; }

Boolean CFStringIsEncodingAvailable(CFStringEncoding encoding) { return findEncoding(encoding).has_value(); }
