#include "platform/corefoundation/property_list_failure.h"

#include "platform/corefoundation/string.h"

namespace cf {

CFErrorRef createListError(const ListFailure& failure) {
  Owned<CFStringRef> text(createString(failure.message));
  if (!text) text.reset(createString("The property list cannot be used"));
  const void* const keys[] = {kCFErrorLocalizedDescriptionKey, kCFErrorUnderlyingErrorKey};
  const void* const values[] = {text.get(), failure.cause.get()};
  return CFErrorCreateWithUserInfoKeysAndValues(kCFAllocatorDefault, kCFErrorDomainCocoa, failure.code, keys, values,
                                                failure.cause == nullptr ? 1 : 2);
}

std::string printable(std::string_view bytes) {
  constexpr std::size_t kLongest = 40;
  std::string text;
  for (const char byte : bytes.substr(0, kLongest)) text += byte >= ' ' && byte <= '~' ? byte : '?';
  if (bytes.size() > kLongest) text += "...";
  return text;
}

}  // namespace cf
