// path_text.h: paths as text: what may be exported by its form, and the octal escapes of Linux.
#pragma once

#include <string>
#include <string_view>

namespace exports {

// A character that the library writes into an exports line without a backslash.
bool isPlainInShell(char character);
bool isUtf8(std::string_view text);
// Why no export has this path; empty when it has the form of one: absolute, UTF-8, without "." and "..", not "/".
std::string reasonAgainstPath(std::string_view path);
// The same path with one slash where several follow one another, and none at its end.
std::string withoutIdleSlashes(std::string_view path);
// True for the folder itself and all that lies in it, by the text alone.
bool liesIn(std::string_view path, std::string_view folder);

// The text with every byte but letters, digits and _ - . / : @ % + , = as \ and three octal digits: one word of
// exports(5), and one line of a message.
std::string octalText(std::string_view bytes);
// The reverse: \ and three octal digits become their byte, everything else stays.
std::string bytesOfOctalText(std::string_view text);

}  // namespace exports
