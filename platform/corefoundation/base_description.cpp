// The texts that CFCopyDescription gives, and what the kinds' own descriptions are put together from.
#include <CoreFoundation/CFString.h>

#include <cstdint>
#include <cstdio>

#include "platform/corefoundation/base.h"
#include "platform/corefoundation/string.h"

namespace cf {
namespace {

constexpr int kGreatestDescribedDepth = 32;

void appendQuoted(std::string& text, std::string_view content) {
  text += '"';
  for (const char byte : content) {
    if (byte == '"' || byte == '\\') text += '\\';
    text += byte;
  }
  text += '"';
}

void appendString(std::string& text, CFStringRef string) { text += utf8View(string); }

void appendAddress(std::string& text, const void* value) {
  char address[32];
  std::snprintf(address, sizeof address, "0x%jx", static_cast<std::uintmax_t>(reinterpret_cast<std::uintptr_t>(value)));
  text += address;
}

}  // namespace

void appendDescription(std::string& text, const void* object, int depth) {
  if (object == nullptr) {
    text += "(null)";
  } else if (isString(object)) {
    appendQuoted(text, utf8View(static_cast<CFStringRef>(object)));
  } else if (depth >= kGreatestDescribedDepth && head(object)->type->nests) {
    text += "...";
  } else if (isKind(object, kArrayClass)) {
    appendArrayDescription(text, object, depth);
  } else if (isKind(object, kDictionaryClass)) {
    appendDictionaryDescription(text, object, depth);
  } else {
    const Owned<CFStringRef> description(CFCopyDescription(object));
    if (description) appendString(text, description.get());
  }
}

void appendValueDescription(std::string& text, const void* value, CFStringRef (*copyDescription)(const void*)) {
  const Owned<CFStringRef> description(copyDescription != nullptr ? copyDescription(value) : nullptr);
  if (description) {
    appendString(text, description.get());
  } else {
    appendAddress(text, value);
  }
}

}  // namespace cf

CFStringRef CFCopyDescription(CFTypeRef object) {
  if (object == nullptr) return CFSTR("(null)");
  const CFRuntimeClass& kind = *cf::head(object)->type;
  if (kind.copyDescription != nullptr) return kind.copyDescription(object);
  std::string text = "<";
  text += kind.name;
  text += ' ';
  cf::appendAddress(text, object);
  text += '>';
  return cf::createText(text);
}

CFStringRef CFCopyTypeIDDescription(CFTypeID type) {
  if (type == 0) return nullptr;
  const auto* const kind = reinterpret_cast<const CFRuntimeClass*>(type);  // NOLINT(performance-no-int-to-ptr)
  return cf::createText(kind->name);
}
