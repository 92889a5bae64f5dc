// string.h: what the rest of this folder uses of strings, without the checks of the public interface.
//
// Every string, constant, immutable or mutable, has the one layout of CFStringStorage, so that its bytes are read
// without asking for its kind. Immutable strings carry their bytes in the same block. The bytes are UTF-8, with a lone
// surrogate (possible only from UTF-16 input) as the three bytes its code point would have; two adjacent halves
// of a pair are always joined, so that equal strings have equal bytes.
#pragma once

#include <CoreFoundation/CFString.h>

#include "platform/corefoundation/runtime.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace cf {

inline bool isString(const void* object) { return isKind(object, kCFStringClass); }
inline bool isASCII(CFStringRef string) { return (string->head.info & kCFStringInfoASCII) != 0; }
inline bool isMutableString(CFStringRef string) { return (string->head.info & kCFStringInfoMutable) != 0; }

// The bytes of any string; a NUL follows them. Valid as long as the string is and, for a mutable one, unchanged.
inline std::string_view utf8View(CFStringRef string) noexcept {
  return {string->bytes, static_cast<std::size_t>(string->byteCount)};
}

// A new string from bytes known to be valid UTF-8; `ascii` says that every byte is below 0x80. Never null; throws
// std::bad_alloc. The caller owns the result.
CFStringRef createString(const char* utf8, std::size_t byteCount, bool ascii);
// The same from bytes that are checked first: null when they are not UTF-8.
CFStringRef createString(std::string_view utf8);

// What a pass over bytes finds.
struct UTF8Facts {
  bool valid;           // strict UTF-8: no surrogates, no overlong forms, nothing beyond U+10FFFF
  bool ascii;           // every byte is below 0x80
  CFIndex utf16Length;  // in UTF-16 code units; meaningful when valid
};
UTF8Facts examineUTF8(const char* bytes, std::size_t byteCount) noexcept;

// The hash of a string with these bytes; never 0.
CFHashCode hashBytes(const char* bytes, std::size_t byteCount) noexcept;
inline CFHashCode hashBytes(std::string_view bytes) noexcept { return hashBytes(bytes.data(), bytes.size()); }

// The hash of a string, cached in it. Any thread may be the one that fills the cache: all of them store the same value.
inline CFHashCode stringHash(CFStringRef string) noexcept {
  CFHashCode* const cache = &const_cast<CFStringStorage*>(string)->hash;
  CFHashCode hash = __atomic_load_n(cache, __ATOMIC_RELAXED);
  if (hash == 0) {
    hash = hashBytes(utf8View(string));
    if (!isMutableString(string)) __atomic_store_n(cache, hash, __ATOMIC_RELAXED);
  }
  return hash;
}

inline bool stringsAreEqual(CFStringRef left, CFStringRef right) noexcept {
  return left == right || utf8View(left) == utf8View(right);
}

}  // namespace cf
