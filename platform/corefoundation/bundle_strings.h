// bundle_strings.h: string tables (".strings" files).
#pragma once

#include <CoreFoundation/CFDictionary.h>

#include "platform/corefoundation/runtime.h"

#include <string>
#include <string_view>

namespace cf {

// A table from a file's bytes: a property list with a dictionary as its root, or text in UTF-8 or, with a byte order
// mark, UTF-16. Empty when it is neither, or malformed.
Owned<CFDictionaryRef> parseStringTable(const std::string& bytes);

// The text form, in UTF-8:
//
//   table   = { entry } | "{" { entry } "}"
//   entry   = string [ "=" string ] ";"        without a value the key is its own value
//   string  = '"' ... '"' | "'" ... "'" | one or more of A-Z a-z 0-9 _ $ . / : -
//
// with white space and comments in the manner of C and C++ between any two of these. Inside quotes a backslash begins
// \n \t \r \a \b \f \v, \Uxxxx and \uxxxx (a UTF-16 code unit, four hexadecimal digits), up to three octal digits (a
// Unicode code point below 512), and stands for what follows it in every other case. Of a key that comes twice the
// last value counts. Empty when the text is malformed.
Owned<CFDictionaryRef> parseStringTableText(std::string_view text);

}  // namespace cf
