// message_text.h: text as it may stand between the double quotes of an XML attribute.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tovan {

// Whether <log msg="TEXT"/> is a document that the XML reader takes, decided without it.
enum class AttributeFit {
  fits,
  fails,
  unclear  // only the reader can tell: the text holds a double quote after which another attribute may follow
};
AttributeFit attributeFit(std::string_view text) noexcept;
// The same with the reader's answer where it is needed.
bool fitsAttribute(std::string_view text);

// Text with %XX in place of every byte that the log does not leave as it is; nothing when it is not UTF-8.
std::optional<std::string> percentEscaped(std::string_view text);
// Any bytes with every character kept that XML can carry: those with a meaning there as entities or character
// references, and U+FFFD for all that is no character.
std::string attributeCopy(std::string_view text);

// What stands in a record for a message: CTovanLogger::escapedString() of it, but percent-escaped also when the record
// would have an attribute twice through it. `storage` keeps the text when it is not the message itself.
std::string_view recordText(std::string_view message, std::string& storage);

}  // namespace tovan
