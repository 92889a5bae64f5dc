// property_list_failure.h: what the readers and writers of property lists throw among themselves. The public functions
// turn it into an error object; it never leaves this folder.
#pragma once

#include <CoreFoundation/CFError.h>

#include <memory>
#include <string>
#include <string_view>

namespace cf {

struct ListFailure {
  CFIndex code;         // one of the codes of CFPropertyList.h
  std::string message;  // a whole sentence without its full stop, UTF-8
  // The error of a stream that caused this one, or null.
  std::shared_ptr<const CFErrorStorage> cause = nullptr;
};

// An error of domain kCFErrorDomainCocoa with that message as its description and the cause as its underlying error.
// The caller owns it.
CFErrorRef createListError(const ListFailure& failure);

// Bytes of the input as they may stand in a message: printable ASCII, anything else as "?", cut after 40 characters.
std::string printable(std::string_view bytes);

}  // namespace cf
