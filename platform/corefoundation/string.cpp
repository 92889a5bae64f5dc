// string.cpp: the string kind: making immutable strings and reading them.
#include "platform/corefoundation/string.h"

#include <bit>
#include <cstring>
#include <string>

#include "platform/corefoundation/string_mutable.h"
#include "platform/corefoundation/string_utf8.h"

namespace cf {
namespace {

// The description, for people who look at a string as an object: <CFString 0x5581c2a0>{contents = "text"}.
CFStringRef describe(const void* object) {
  std::string text;
  char address[2 * sizeof(void*) + 1];
  auto value = std::bit_cast<std::uintptr_t>(object);
  char* digit = address + sizeof address - 1;
  *digit = '\0';
  do *--digit = "0123456789abcdef"[value & 15];
  while ((value >>= 4) != 0);
  text.append("<CFString 0x").append(digit).append(">{contents = \"");
  text.append(utf8View(static_cast<CFStringRef>(object))).append("\"}");
  return createTrusted(text);
}

void finalize(void* object) noexcept {
  if (isMutableString(static_cast<CFStringRef>(object))) freeBuffer(static_cast<CFMutableStringRef>(object));
  std::free(object);
}

bool equal(const void* left, const void* right) {
  return stringsAreEqual(static_cast<CFStringRef>(left), static_cast<CFStringRef>(right));
}

CFHashCode hash(const void* object) { return stringHash(static_cast<CFStringRef>(object)); }

// A new immutable string whose bytes follow its layout in the same block.
CFStringStorage* createInline(const char* utf8, std::size_t byteCount, CFIndex length, std::uint32_t info) {
  auto* const string = create<CFStringStorage>(kCFStringClass, byteCount + 1, nullptr, static_cast<CFIndex>(byteCount),
                                               length, CFHashCode{0}, uint64_t{0});
  char* const bytes = reinterpret_cast<char*>(string + 1);
  if (byteCount != 0) std::memcpy(bytes, utf8, byteCount);
  bytes[byteCount] = '\0';
  string->bytes = bytes;
  string->head.info = info;
  return string;
}

// Multiply and fold: both halves of the 128-bit product depend on all bits of both factors.
__extension__ typedef unsigned __int128 Wide;
std::uint64_t mix(std::uint64_t a, std::uint64_t b) noexcept {
  const Wide product = static_cast<Wide>(a) * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

std::uint64_t load8(const char* at) noexcept {
  std::uint64_t word;
  std::memcpy(&word, at, 8);
  return word;
}

std::uint64_t load4(const char* at) noexcept {
  std::uint32_t word;
  std::memcpy(&word, at, 4);
  return word;
}

}  // namespace

// Eight bytes at a step, the last step overlapping the one before it. The factors are odd numbers with their bits
// well spread (the fractional digits of the golden ratio and of the square root of two).
CFHashCode hashBytes(const char* bytes, std::size_t byteCount) noexcept {
  constexpr std::uint64_t kFirst = 0x9E3779B97F4A7C15u;
  constexpr std::uint64_t kSecond = 0x6A09E667F3BCC909u;
  // Where the library lies differs from run to run, so that nobody can make strings that all have the same hash.
  const std::uint64_t secret = reinterpret_cast<std::uintptr_t>(&kCFStringClass) * kSecond;
  std::uint64_t state = byteCount * kFirst ^ secret;
  if (byteCount >= 8) {
    std::size_t i = 0;
    for (; i + 8 < byteCount; i += 8) state = mix(state ^ load8(bytes + i), kFirst);
    state = mix(state ^ load8(bytes + byteCount - 8), kSecond);
  } else if (byteCount >= 4) {
    state = mix(state ^ (load4(bytes) << 32 | load4(bytes + byteCount - 4)), kSecond);
  } else if (byteCount > 0) {
    const auto byte = [bytes](std::size_t i) { return std::uint64_t{static_cast<unsigned char>(bytes[i])}; };
    state = mix(state ^ (byte(0) << 16 | byte(byteCount / 2) << 8 | byte(byteCount - 1)), kSecond);
  }
  const std::uint64_t hashed = mix(state, kFirst);
  return hashed == 0 ? 1 : hashed;
}

CFStringRef createString(const char* utf8, std::size_t byteCount, bool ascii) {
  if (ascii) {
    return createInline(utf8, byteCount, static_cast<CFIndex>(byteCount), kCFStringInfoASCII | kCFStringInfoWellFormed);
  }
  return createTrusted({utf8, byteCount});
}

CFStringRef createString(std::string_view utf8) {
  const UTF8Facts facts = examineUTF8(utf8.data(), utf8.size());
  if (!facts.valid) return nullptr;
  const std::uint32_t info = kCFStringInfoWellFormed | (facts.ascii ? std::uint32_t{kCFStringInfoASCII} : 0u);
  return createInline(utf8.data(), utf8.size(), facts.utf16Length, info);
}

CFStringRef createTrusted(std::string_view text) {
  const TextFacts facts = measure(text);
  const std::uint32_t info = (facts.ascii ? std::uint32_t{kCFStringInfoASCII} : 0u) |
                             (facts.wellFormed ? std::uint32_t{kCFStringInfoWellFormed} : 0u);
  return createInline(text.data(), text.size(), facts.length, info);
}

}  // namespace cf

using namespace cf;

const CFRuntimeClass kCFStringClass = {"CFString", finalize, equal, hash, describe};

CFTypeID CFStringGetTypeID(void) { return std::bit_cast<CFTypeID>(&kCFStringClass); }

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar* characters, CFIndex count) {
  if (count < 0 || (characters == nullptr && count > 0)) return nullptr;
  std::string text;
  text.reserve(static_cast<std::size_t>(count));
  appendUnits(text, characters, static_cast<std::size_t>(count));
  return createTrusted(text);
}

CFStringRef CFStringCreateWithSubstring(CFAllocatorRef, CFStringRef string, CFRange range) {
  if (string == nullptr) return nullptr;
  const CFRange part = clip(range, string->length);
  if (isASCII(string)) {
    return createString(string->bytes + part.location, static_cast<std::size_t>(part.length), true);
  }
  std::string text;
  appendRange(text, string, part);
  return createTrusted(text);
}

CFStringRef CFStringCreateCopy(CFAllocatorRef, CFStringRef string) {
  if (string == nullptr) return nullptr;
  if (isMutableString(string)) return createTrusted(utf8View(string));
  retain(string);
  return string;
}

CFIndex CFStringGetLength(CFStringRef string) { return string == nullptr ? 0 : string->length; }

UniChar CFStringGetCharacterAtIndex(CFStringRef string, CFIndex index) {
  if (string == nullptr || index < 0 || index >= string->length) return 0;
  if (isASCII(string)) return static_cast<unsigned char>(string->bytes[index]);
  return UnitReader(string, CFRangeMake(index, 1)).next();
}

void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* buffer) {
  if (string == nullptr || buffer == nullptr) return;
  const CFRange part = clip(range, string->length);
  // The buffer's first place belongs to range.location, wherever that lies.
  UniChar* out = buffer + (part.length == 0 ? 0 : part.location - range.location);
  if (isASCII(string)) {
    for (CFIndex i = 0; i < part.length; ++i) out[i] = static_cast<unsigned char>(string->bytes[part.location + i]);
    return;
  }
  for (UnitReader reader(string, part); !reader.done();) *out++ = reader.next();
}
