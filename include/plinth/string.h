// string.h: CString, the library's string, and CSTR, which makes one.
//
// A CString holds one CoreFoundation string. It is a value: append() changes the object it is called on and so every
// holder of it; everything else leaves it alone. Indexes and lengths are counted in UTF-16 code units, as
// CoreFoundation counts. One CString is changed by one thread at a time; reading from many is safe. An empty holder
// given as another text counts as no text: nothing is appended, and nothing begins with, ends in or holds it.
#pragma once

#include <plinth/data_value.h>
#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CFString.h>

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <string>

namespace plinth {

class CString;
using CStringRef = CSharedObjectRef<CString>;

// A new string; an empty holder for a null or empty source, and for bytes that the encoding cannot read.
PLINTH_EXPORT CStringRef CSTR(const char* text, CFStringEncoding encoding = kCFStringEncodingUTF8);
PLINTH_EXPORT CStringRef CSTR(CFStringRef text);  // retains (a mutable string is copied)
PLINTH_EXPORT CStringRef CSTR(const CStringRef& text);
PLINTH_EXPORT CStringRef CSTR(const std::string& text);
inline CStringRef CSTR(std::nullptr_t) noexcept { return nullptr; }

class PLINTH_EXPORT CString : public CDataValue {
 public:
  CString();
  explicit CString(CFStringRef text);  // retains (a mutable string is copied); null makes the empty string

  const char* typeName() const noexcept override;

  // Owned by this object, until it is changed or destroyed; retain it to keep it longer, as it then is. Never null.
  CFStringRef getStringRef() const noexcept;
  // With a NUL at the end, owned by this object until it is changed or destroyed. A string that holds U+0000 seems to
  // end there, and a lone surrogate, which UTF-8 cannot carry, reads as "?".
  const char* getUTF8Ptr() const;
  // The same characters as getUTF8Ptr(): the library's character set is UTF-8.
  const char* getCharPtr() const;
  // In UTF-16 code units.
  CFIndex getLength() const noexcept;
  bool isEmpty() const noexcept { return getLength() == 0; }
  // All of the text in UTF-8, U+0000 included.
  std::string str() const;

  // A new string from a printf-style format that also knows %@ (a CoreFoundation object). %s takes UTF-8; a byte that
  // is not UTF-8 becomes U+FFFD. An empty holder for a null format or one that is not UTF-8.
  static CStringRef sprintf(const char* format, ...);
  static CStringRef sprintf(CFStringRef format, ...);
  static CStringRef vsprintf(const char* format, va_list arguments);
  static CStringRef vsprintf(CFStringRef format, va_list arguments);
  static CStringRef fromInt(long long value);

  void append(const CStringRef& text);
  void append(const char* text);  // in UTF-8; null, and text that is not UTF-8, appends nothing
  // The UTF-16 code unit at an index; 0 outside the string.
  UniChar operator[](CFIndex index) const;

  // Case is ignored character by character, independent of the locale. Every string begins with, ends in and holds the
  // empty string.
  bool beginsWith(const CStringRef& other, bool ignoreCase = false) const;
  bool endsWith(const CStringRef& other, bool ignoreCase = false) const;
  // Whether `other` occurs at or after `start` (a negative one is 0; behind the end nothing occurs); `index` receives
  // where it first does, and is left alone otherwise.
  bool find(const CStringRef& other, CFIndex start, CFIndex& index, bool ignoreCase = false) const;

  bool operator==(const CString& other) const;
  bool operator!=(const CString& other) const { return !(*this == other); }

  // The string as one word of a POSIX shell, which the shell reads back as the same bytes: a backslash before every
  // ASCII character but letters, digits and _ - . / : @ % + , =. Two things have no such form and are quoted: a line
  // feed (between single quotes) and the empty string (''). A leading dash stays: it is the command that takes it for
  // an option. Throws CParamException for a string that holds U+0000, which no word can.
  CStringRef shellEscapedFilename() const;

  // The empty string for an empty holder, and an empty holder for the empty string.
  static CStringRef nullToEmptyString(const CStringRef& text);
  static CStringRef emptyToNullString(const CStringRef& text);

 protected:
  ~CString() override;

 private:
  CString(const CString&) = delete;
  CString& operator=(const CString&) = delete;
  void append(CFStringRef text);
  void forgetUTF8() noexcept;

  CSharedCFRef<CFStringRef> text_;
  bool ownsMutable_ = false;                               // text_ is a mutable string made by append()
  mutable std::atomic<const std::string*> utf8_{nullptr};  // made when first needed
};

// Content comparison of two holders; two empty holders are equal, an empty one equals nothing else.
PLINTH_EXPORT bool operator==(const CStringRef& left, const CStringRef& right);
inline bool operator!=(const CStringRef& left, const CStringRef& right) { return !(left == right); }

}  // namespace plinth
