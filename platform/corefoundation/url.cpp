// URL objects: making them from text, and their parts.
#include "platform/corefoundation/url.h"

#include "platform/corefoundation/string.h"

#include <charconv>

namespace cf {
namespace {

const CFURLStorage* storage(const void* url) { return static_cast<const CFURLStorage*>(url); }

void finalizeURL(void* object) noexcept {
  const CFURLStorage* const url = storage(object);
  release(url->text);
  if (url->base != nullptr) release(url->base);
  std::free(object);
}

bool equalURLs(const void* left, const void* right) {
  const CFURLStorage* const a = storage(left);
  const CFURLStorage* const b = storage(right);
  return stringsAreEqual(a->text, b->text) && CFEqual(a->base, b->base);
}

CFHashCode hashURL(const void* object) { return stringHash(storage(object)->text); }

CFStringRef copyURLDescription(const void* object) {
  const CFURLStorage* const url = storage(object);
  if (url->base == nullptr) return CFStringCreateCopy(kCFAllocatorDefault, url->text);
  const Owned<CFStringRef> base(copyURLDescription(url->base));
  return createString(std::string(utf8View(url->text)) + " -- " + std::string(utf8View(base.get())));
}

// A part as it stands; null for an absent one.
CFStringRef copyRaw(std::string_view part) {
  return part.data() == nullptr ? nullptr : createString(part.data(), part.size(), true);
}

// A part without its escapes; null for an absent one and for bytes that are not UTF-8.
CFStringRef copyDecoded(std::string_view part) {
  return part.data() == nullptr ? nullptr : createString(decodeEscapes(part));
}

CFStringRef copyWithEscapesLeft(std::string_view part, CFStringRef charactersToLeaveEscaped) {
  Owned<CFStringRef> raw(copyRaw(part));
  if (!raw || charactersToLeaveEscaped == nullptr) return raw.take();
  return CFURLCreateStringByReplacingPercentEscapes(kCFAllocatorDefault, raw.get(), charactersToLeaveEscaped);
}

bool canBeDecomposed(CFURLRef url) { return isKind(url, kURLClass) && !url->parts.isOpaque(); }

URLAuthority authorityOf(CFURLRef url) {
  return canBeDecomposed(url) ? splitAuthority(url->parts.authority) : URLAuthority{};
}

}  // namespace

constinit const CFRuntimeClass kURLClass = {"CFURL", finalizeURL, equalURLs, hashURL, copyURLDescription};

CFURLRef createURL(std::string_view text, CFURLRef base) {
  Owned<CFStringRef> string(createString(text.data(), text.size(), true));
  const URLParts parts = splitURL(utf8View(string.get()));
  if (parts.scheme.data() != nullptr) base = nullptr;
  CFURLRef const url = create<CFURLStorage>(kURLClass, 0, string.get(), base, parts);
  static_cast<void>(string.take());
  if (base != nullptr) retain(base);
  return url;
}

}  // namespace cf

using namespace cf;

CFTypeID CFURLGetTypeID(void) { return reinterpret_cast<CFTypeID>(&kURLClass); }

CFURLRef CFURLCreateWithString(CFAllocatorRef, CFStringRef text, CFURLRef base) {
  if (!isString(text) || (base != nullptr && !isKind(base, kURLClass))) return nullptr;
  const std::string_view bytes = utf8View(text);
  if ((bytes.empty() && base == nullptr) || !isURLReference(bytes)) return nullptr;
  return createURL(bytes, base);
}

CFURLRef CFURLCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length, CFStringEncoding encoding,
                              CFURLRef base) {
  if (bytes == nullptr || length < 0) return nullptr;
  const Owned<CFStringRef> text(CFStringCreateWithBytes(allocator, bytes, length, encoding, false));
  return text ? CFURLCreateWithString(allocator, text.get(), base) : nullptr;
}

CFURLRef CFURLCopyAbsoluteURL(CFURLRef url) {
  if (!isKind(url, kURLClass)) return nullptr;
  if (url->base != nullptr) {
    const Owned<CFURLRef> base(CFURLCopyAbsoluteURL(url->base));
    if (base.get()->parts.scheme.data() != nullptr) {
      if (const auto text = resolveURL(utf8View(base.get()->text), utf8View(url->text))) {
        return createURL(*text, nullptr);
      }
    }
  }
  retain(url);
  return url;
}

CFStringRef CFURLGetString(CFURLRef url) { return isKind(url, kURLClass) ? url->text : nullptr; }

CFURLRef CFURLGetBaseURL(CFURLRef url) { return isKind(url, kURLClass) ? url->base : nullptr; }

Boolean CFURLCanBeDecomposed(CFURLRef url) { return canBeDecomposed(url); }

CFStringRef CFURLCopyScheme(CFURLRef url) { return isKind(url, kURLClass) ? copyRaw(url->parts.scheme) : nullptr; }

CFStringRef CFURLCopyNetLocation(CFURLRef url) {
  return canBeDecomposed(url) ? copyRaw(url->parts.authority) : nullptr;
}

CFStringRef CFURLCopyHostName(CFURLRef url) {
  const URLAuthority authority = authorityOf(url);
  return authority.host.empty() ? nullptr : copyDecoded(authority.host);
}

CFStringRef CFURLCopyUserName(CFURLRef url) { return copyDecoded(authorityOf(url).user); }

CFStringRef CFURLCopyPassword(CFURLRef url) { return copyDecoded(authorityOf(url).password); }

SInt32 CFURLGetPortNumber(CFURLRef url) {
  const std::string_view text = authorityOf(url).port;
  unsigned port = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), port);
  if (text.empty() || result.ec != std::errc() || port > 65535) return -1;
  return static_cast<SInt32>(port);
}

CFStringRef CFURLCopyPath(CFURLRef url) { return canBeDecomposed(url) ? copyRaw(url->parts.path) : nullptr; }

CFStringRef CFURLCopyStrictPath(CFURLRef url, Boolean* isAbsolute) {
  if (!canBeDecomposed(url)) return nullptr;
  std::string_view path = url->parts.path;
  const bool absolute = path.starts_with('/');
  if (isAbsolute != nullptr) *isAbsolute = absolute;
  if (absolute) path.remove_prefix(1);
  return copyRaw(path);
}

CFStringRef CFURLCopyResourceSpecifier(CFURLRef url) {
  if (!isKind(url, kURLClass)) return nullptr;
  const std::string_view text = utf8View(url->text);
  const std::string_view path = url->parts.path;
  const char* const from = url->parts.isOpaque() ? path.data() : path.data() + path.size();
  const std::string_view rest(from, static_cast<std::size_t>(text.data() + text.size() - from));
  return rest.empty() ? nullptr : copyRaw(rest);
}

CFStringRef CFURLCopyQueryString(CFURLRef url, CFStringRef charactersToLeaveEscaped) {
  return canBeDecomposed(url) ? copyWithEscapesLeft(url->parts.query, charactersToLeaveEscaped) : nullptr;
}

CFStringRef CFURLCopyFragment(CFURLRef url, CFStringRef charactersToLeaveEscaped) {
  return canBeDecomposed(url) ? copyWithEscapesLeft(url->parts.fragment, charactersToLeaveEscaped) : nullptr;
}
