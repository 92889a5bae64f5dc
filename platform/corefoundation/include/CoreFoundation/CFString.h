/* CFString.h: strings.
 *
 * Indexes and lengths are counted in UTF-16 code units, whatever a string holds. Inside, text is UTF-8; a lone
 * surrogate, which only UTF-16 input or a cut through a pair can bring in, is kept and found again at its index.
 *
 * Ownership: Create and Copy functions give the caller a reference. CFSTR constants are never counted.
 *
 * Threads: an immutable string may be read from any thread at the same time, its cached hash included. A mutable
 * string belongs to one thread at a time.
 *
 * Failures: a Create function answers NULL for a NULL source, a source that its encoding cannot read, and an
 * encoding that is not available. An index outside a string is clipped to it: a range never reads or writes
 * outside, and CFStringGetCharacterAtIndex answers 0. Memory that cannot be had is a std::bad_alloc.
 *
 * The allocator argument is there for the sake of the signature: the default allocator is always used. */
#ifndef COREFOUNDATION_CFSTRING_H
#define COREFOUNDATION_CFSTRING_H

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFDictionary.h>

#include <stdarg.h>

/* No locale object exists: pass NULL, which means the rules of no particular language. */
typedef const struct CFLocaleStorage* CFLocaleRef;

typedef UInt32 CFStringEncoding;
enum {
  kCFStringEncodingMacRoman = 0,
  kCFStringEncodingISOLatin1 = 0x0201,
  kCFStringEncodingASCII = 0x0600,
  kCFStringEncodingUnicode = 0x0100, /* the same as UTF16 */
  kCFStringEncodingUTF8 = 0x08000100,
  kCFStringEncodingUTF16 = 0x0100, /* the byte order of a leading mark, else of this machine */
  kCFStringEncodingUTF16BE = 0x10000100,
  kCFStringEncodingUTF16LE = 0x14000100,
  kCFStringEncodingUTF32 = 0x0c000100, /* the byte order of a leading mark, else of this machine */
  kCFStringEncodingUTF32BE = 0x18000100,
  kCFStringEncodingUTF32LE = 0x1c000100
};
#define kCFStringEncodingInvalidId (0xffffffffU)

/* How strings are compared and searched. */
typedef CFOptionFlags CFStringCompareFlags;
enum {
  kCFCompareCaseInsensitive = 1,
  kCFCompareBackwards = 4, /* search from the end */
  kCFCompareAnchored = 8,  /* find only at the start (or, backwards, at the end) */
  /* The next two are accepted and change nothing: text is always compared character by character, without
   * Unicode equivalence and without the order of a language. */
  kCFCompareNonliteral = 16,
  kCFCompareLocalized = 32,
  kCFCompareNumerically = 64 /* runs of digits compare as numbers: "file9" is less than "file10" */
};

/* A string's layout. Public only so that CFSTR can lay out constants at compile time; clients never touch it. */
struct CFStringStorage {
  CFObjectHead head;
  const char* bytes;   /* UTF-8, a NUL behind the last byte */
  CFIndex byteCount;   /* without that NUL */
  CFIndex length;      /* in UTF-16 code units */
  CFHashCode hash;     /* 0 until first asked for */
  uint64_t breadcrumb; /* the last index looked up, beside its byte offset; unused while every character is ASCII */
};

/* The bits of the head's info. */
enum {
  kCFStringInfoASCII = 1,     /* every byte is below 0x80, so that indexes are byte offsets */
  kCFStringInfoMutable = 2,   /* the bytes lie in a buffer of their own */
  kCFStringInfoWellFormed = 4 /* known to hold no lone surrogate */
};

CF_EXTERN_C_BEGIN

/* The kind of every string; the address is CFStringGetTypeID(). */
CF_EXPORT const CFRuntimeClass kCFStringClass;

CF_EXPORT CFTypeID CFStringGetTypeID(void);

/* What CFSTR calls in C: the one constant string for this UTF-8 text, made on first use and kept for ever. NULL for
 * NULL and for text that is not UTF-8. Any thread. */
CF_EXPORT CFStringRef CFStringGetConstant(const char* text);

/* ---- Making strings ------------------------------------------------------------------------------------------ */

/* C strings are in encodings of bytes: a UTF16 or UTF32 encoding gives NULL (and false where a string is turned into
 * a C string). */
CF_EXPORT CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text, CFStringEncoding encoding);
/* The text is copied. With the default allocator as contentsDeallocator it is then freed with free(), with
 * kCFAllocatorNull it stays the caller's, as it does whenever the answer is NULL. */
CF_EXPORT CFStringRef CFStringCreateWithCStringNoCopy(CFAllocatorRef allocator, const char* text,
                                                      CFStringEncoding encoding, CFAllocatorRef contentsDeallocator);
/* isExternalRepresentation: whether a byte order mark at the start is a mark and not a character. */
CF_EXPORT CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex byteCount,
                                              CFStringEncoding encoding, Boolean isExternalRepresentation);
CF_EXPORT CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* characters, CFIndex count);
CF_EXPORT CFStringRef CFStringCreateWithSubstring(CFAllocatorRef allocator, CFStringRef string, CFRange range);
/* An immutable string is retained, a mutable one copied. */
CF_EXPORT CFStringRef CFStringCreateCopy(CFAllocatorRef allocator, CFStringRef string);

/* Formats. All of printf: the flags - + space # 0 ', width and precision (also *), the sizes h hh l ll q j z t L, the
 * conversions d D i u U x X o O c C s S p f F e E g G a A and %%, and positions (%2$@). %@ prints a string itself and
 * the CFCopyDescription of any other object. %s takes UTF-8 (a byte that is not UTF-8 prints as U+FFFD), %S
 * zero-terminated UTF-16, %C one UTF-16 code unit, %c one byte as ISO Latin-1; width and precision count UTF-16 code
 * units, of %s bytes. A NULL argument of %@, %s or %S prints "(null)". %n is skipped with its argument: nothing is
 * ever written through a format. The decimal point is always '.', whatever the process's locale. A format that
 * cannot be read to its end prints its unreadable rest as it stands. formatOptions is ignored: pass NULL. */
CF_EXPORT CFStringRef CFStringCreateWithFormat(CFAllocatorRef allocator, CFDictionaryRef formatOptions,
                                               CFStringRef format, ...);
CF_EXPORT CFStringRef CFStringCreateWithFormatAndArguments(CFAllocatorRef allocator, CFDictionaryRef formatOptions,
                                                           CFStringRef format, va_list arguments);

/* maxLength is a hint that is not needed: a mutable string grows as far as memory goes. */
CF_EXPORT CFMutableStringRef CFStringCreateMutable(CFAllocatorRef allocator, CFIndex maxLength);
CF_EXPORT CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef allocator, CFIndex maxLength, CFStringRef string);

/* The pieces between occurrences of the separator: "a,,b" gives three. A string without the separator gives itself
 * alone; NULL for an empty separator. */
CF_EXPORT CFArrayRef CFStringCreateArrayBySeparatingStrings(CFAllocatorRef allocator, CFStringRef string,
                                                            CFStringRef separator);
CF_EXPORT CFStringRef CFStringCreateByCombiningStrings(CFAllocatorRef allocator, CFArrayRef strings,
                                                       CFStringRef separator);

/* ---- Reading ------------------------------------------------------------------------------------------------- */

CF_EXPORT CFIndex CFStringGetLength(CFStringRef string);
/* Finds its place from the index last asked for, so that walking a string in either direction is linear. */
CF_EXPORT UniChar CFStringGetCharacterAtIndex(CFStringRef string, CFIndex index);
/* Writes range.length code units; the part of the range outside the string is left alone. */
CF_EXPORT void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* buffer);
/* The text and a NUL. false, and an empty text, when bufferSize is too small or the encoding lacks a character. */
CF_EXPORT Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize, CFStringEncoding encoding);
/* The bytes inside the string, NUL at the end, where they are what the encoding wants: always for UTF-8 (unless a
 * lone surrogate is held), and for encodings that extend ASCII when every character is ASCII. Else NULL. The pointer
 * lives as long as the string and, for a mutable one, until it is changed. */
CF_EXPORT const char* CFStringGetCStringPtr(CFStringRef string, CFStringEncoding encoding);
/* Converts as much of the range as fits maxBufLen bytes, whole characters only, and answers how many UTF-16 code
 * units that was; usedBufLen (may be NULL) receives the bytes. A NULL buffer only counts. A character that the
 * encoding lacks becomes lossByte, or ends the conversion when lossByte is 0. isExternalRepresentation: begin with a
 * byte order mark where the encoding has one (UTF16 and UTF32 without a stated order). */
CF_EXPORT CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding, UInt8 lossByte,
                                   Boolean isExternalRepresentation, UInt8* buffer, CFIndex maxBufLen,
                                   CFIndex* usedBufLen);
/* The whole text as data; a byte order mark where the encoding has one. NULL when the encoding lacks a character
 * and lossByte is 0. */
CF_EXPORT CFDataRef CFStringCreateExternalRepresentation(CFAllocatorRef allocator, CFStringRef string,
                                                         CFStringEncoding encoding, UInt8 lossByte);
CF_EXPORT CFStringRef CFStringCreateFromExternalRepresentation(CFAllocatorRef allocator, CFDataRef data,
                                                               CFStringEncoding encoding);
/* The most bytes that `length` UTF-16 code units can need, without NUL; kCFNotFound when that is beyond CFIndex. */
CF_EXPORT CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);
/* File-system paths are UTF-8. The size includes the NUL. */
CF_EXPORT CFIndex CFStringGetMaximumSizeOfFileSystemRepresentation(CFStringRef string);
/* false, too, for a text that holds U+0000, which no path can. */
CF_EXPORT Boolean CFStringGetFileSystemRepresentation(CFStringRef string, char* buffer, CFIndex maxBufLen);
CF_EXPORT CFStringRef CFStringCreateWithFileSystemRepresentation(CFAllocatorRef allocator, const char* path);
/* Skips leading white space, takes a sign and digits and stops; out of range gives INT32_MAX or INT32_MIN, no
 * digits give 0. */
CF_EXPORT SInt32 CFStringGetIntValue(CFStringRef string);
/* Skips leading white space and takes a decimal number, with exponent; the decimal point is '.'. 0.0 for none. */
CF_EXPORT double CFStringGetDoubleValue(CFStringRef string);

/* ---- Comparing and searching --------------------------------------------------------------------------------- */

/* By UTF-16 code unit, so that the order is the same as that of CFStringGetCharacters. Case-insensitive: by simple
 * case mapping of each character (see CFStringLowercase). Numerically: maximal runs of the digits 0 to 9 compare by
 * value, of any length; where two runs are equal in value and everything else is equal too, the one with fewer
 * leading zeros comes first. */
CF_EXPORT CFComparisonResult CFStringCompare(CFStringRef left, CFStringRef right, CFStringCompareFlags options);
/* Compares a range of `left` with the whole of `right`. */
CF_EXPORT CFComparisonResult CFStringCompareWithOptions(CFStringRef left, CFStringRef right, CFRange rangeOfLeft,
                                                        CFStringCompareFlags options);
/* The first place (last with kCFCompareBackwards), or location kCFNotFound with length 0. An empty text is never
 * found. */
CF_EXPORT CFRange CFStringFind(CFStringRef string, CFStringRef text, CFStringCompareFlags options);
/* Within a range; `result` (may be NULL) is left alone when nothing is found. */
CF_EXPORT Boolean CFStringFindWithOptions(CFStringRef string, CFStringRef text, CFRange rangeToSearch,
                                          CFStringCompareFlags options, CFRange* result);
/* Every string has the empty prefix and suffix. */
CF_EXPORT Boolean CFStringHasPrefix(CFStringRef string, CFStringRef prefix);
CF_EXPORT Boolean CFStringHasSuffix(CFStringRef string, CFStringRef suffix);

/* ---- Changing. Each does nothing to a string that is not mutable. ---------------------------------------------- */

CF_EXPORT void CFStringAppend(CFMutableStringRef string, CFStringRef appended);
CF_EXPORT void CFStringAppendCString(CFMutableStringRef string, const char* text, CFStringEncoding encoding);
CF_EXPORT void CFStringAppendCharacters(CFMutableStringRef string, const UniChar* characters, CFIndex count);
CF_EXPORT void CFStringAppendFormat(CFMutableStringRef string, CFDictionaryRef formatOptions, CFStringRef format, ...);
CF_EXPORT void CFStringAppendFormatAndArguments(CFMutableStringRef string, CFDictionaryRef formatOptions,
                                                CFStringRef format, va_list arguments);
CF_EXPORT void CFStringInsert(CFMutableStringRef string, CFIndex index, CFStringRef inserted);
CF_EXPORT void CFStringDelete(CFMutableStringRef string, CFRange range);
CF_EXPORT void CFStringReplace(CFMutableStringRef string, CFRange range, CFStringRef replacement);
CF_EXPORT void CFStringReplaceAll(CFMutableStringRef string, CFStringRef replacement);
/* Replaces every occurrence in the range, left to right (right to left with kCFCompareBackwards; at most one with
 * kCFCompareAnchored), and answers how many there were. Replacements are not searched again. */
CF_EXPORT CFIndex CFStringFindAndReplace(CFMutableStringRef string, CFStringRef text, CFStringRef replacement,
                                         CFRange rangeToSearch, CFOptionFlags options);
/* Takes every whole occurrence of the text away from both ends. */
CF_EXPORT void CFStringTrim(CFMutableStringRef string, CFStringRef text);
/* White space: tab to carriage return, space, U+0085, U+00A0 and the separators of Unicode (U+1680, U+2000 to
 * U+200A, U+2028, U+2029, U+202F, U+205F, U+3000). */
CF_EXPORT void CFStringTrimWhitespace(CFMutableStringRef string);
/* Each character to its other case, one for one, by the simple case mappings of Unicode below U+10000. The dotted
 * capital and the dotless small i of Turkish stay as they are. Independent of the locale. */
CF_EXPORT void CFStringLowercase(CFMutableStringRef string, CFLocaleRef locale);
CF_EXPORT void CFStringUppercase(CFMutableStringRef string, CFLocaleRef locale);

/* ---- Encodings ----------------------------------------------------------------------------------------------- */

/* UTF-8, always. */
CF_EXPORT CFStringEncoding CFStringGetSystemEncoding(void);
CF_EXPORT Boolean CFStringIsEncodingAvailable(CFStringEncoding encoding);

CF_EXTERN_C_END

/* ---- Constants ----------------------------------------------------------------------------------------------- */

#if defined(__cplusplus)

namespace cf {

/* A literal's bytes as a template argument. */
template <size_t Size>
struct StringLiteral {
  char bytes[Size];

  /* Text that is not UTF-8 does not compile. */
  consteval StringLiteral(const char (&text)[Size]) : bytes{} {
    for (size_t i = 0; i < Size; ++i) bytes[i] = text[i];
    if (bytes[Size - 1] != '\0' || utf16Length() < 0) throw "CFSTR takes a literal in UTF-8";
  }
  consteval bool isASCII() const {
    for (const char byte : bytes) {
      if (static_cast<unsigned char>(byte) >= 0x80) return false;
    }
    return true;
  }
  /* In UTF-16 code units; -1 for bytes that are not UTF-8. */
  consteval CFIndex utf16Length() const {
    CFIndex length = 0;
    for (size_t i = 0; i < Size - 1;) {
      const unsigned lead = static_cast<unsigned char>(bytes[i]);
      const size_t count = lead < 0x80 ? 1 : lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
      if (count == 0 || i + count > Size - 1) return -1;
      for (size_t k = 1; k < count; ++k) {
        if ((static_cast<unsigned char>(bytes[i + k]) & 0xC0) != 0x80) return -1;
      }
      const unsigned second = count > 2 ? static_cast<unsigned char>(bytes[i + 1]) : 0;
      if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) || (lead == 0xF0 && second < 0x90) ||
          (lead == 0xF4 && second > 0x8F)) {
        return -1;
      }
      length += count == 4 ? 2 : 1;
      i += count;
    }
    return length;
  }
};

/* The constant object of one literal. It is not const because its hash is cached in it. */
template <StringLiteral literal>
struct ConstantString {
  static inline constinit CFStringStorage object{
      {&kCFStringClass, kCFObjectIsConstant,
       kCFStringInfoWellFormed | (literal.isASCII() ? unsigned{kCFStringInfoASCII} : 0u)},
      literal.bytes,
      static_cast<CFIndex>(sizeof literal.bytes) - 1,
      literal.utf16Length(),
      0,
      0};
};

}  // namespace cf

/* A constant string object, laid out at compile time. Never retained, never released (both do nothing). */
#define CFSTR(text) (static_cast<CFStringRef>(&::cf::ConstantString<::cf::StringLiteral(text)>::object))

#else

#define CFSTR(text) CFStringGetConstant("" text "")

#endif

#endif
