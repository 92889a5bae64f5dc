#include <plinth/exception.h>
#include <plinth/string.h>

#include <memory>
#include <string_view>

namespace plinth {
namespace {

CStringRef takeOver(CFStringRef owned) {
  const CSharedCFRef<CFStringRef> text(owned);
  return CSTR(text.get());
}

CFStringCompareFlags flags(bool ignoreCase) { return ignoreCase ? CFStringCompareFlags{kCFCompareCaseInsensitive} : 0; }

// A shell takes these as they are; so it does every byte of a character outside ASCII.
bool isPlainInShell(unsigned char byte) {
  constexpr std::string_view kPlain = "_-./:@%+,=";
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') || byte >= 0x80 ||
         kPlain.find(static_cast<char>(byte)) != std::string_view::npos;
}

}  // namespace

CStringRef CSTR(const char* text, CFStringEncoding encoding) {
  if (text == nullptr) return nullptr;
  return takeOver(CFStringCreateWithCString(kCFAllocatorDefault, text, encoding));
}

CStringRef CSTR(CFStringRef text) {
  if (text == nullptr) return nullptr;
  return makeShared<CString>(text);
}

CStringRef CSTR(const CStringRef& text) {
  if (text.isNull()) return nullptr;
  return makeShared<CString>(text->getStringRef());
}

CStringRef CSTR(const std::string& text) {
  return takeOver(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                          static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
}

CString::CString() : CString(nullptr) {}

CString::CString(CFStringRef text)
    : text_(text != nullptr ? CFStringCreateCopy(kCFAllocatorDefault, text) : CFSTR("")) {}

CString::~CString() { forgetUTF8(); }

const char* CString::typeName() const noexcept { return "CString"; }

CFStringRef CString::getStringRef() const noexcept { return text_.get(); }

const char* CString::getUTF8Ptr() const {
  if (const char* bytes = CFStringGetCStringPtr(text_.get(), kCFStringEncodingUTF8)) return bytes;
  // Only a string with a lone surrogate comes here.
  if (const std::string* made = utf8_.load(std::memory_order_acquire)) return made->c_str();
  const CSharedCFRef<CFDataRef> data(
      CFStringCreateExternalRepresentation(kCFAllocatorDefault, text_.get(), kCFStringEncodingUTF8, '?'));
  if (data.isNull()) return "";
  auto fresh = std::make_unique<const std::string>(reinterpret_cast<const char*>(CFDataGetBytePtr(data.get())),
                                                   static_cast<std::size_t>(CFDataGetLength(data.get())));
  const std::string* expected = nullptr;
  // Several threads may get here at once; the first one's text stays.
  if (utf8_.compare_exchange_strong(expected, fresh.get(), std::memory_order_acq_rel)) return fresh.release()->c_str();
  return expected->c_str();
}

const char* CString::getCharPtr() const { return getUTF8Ptr(); }

CFIndex CString::getLength() const noexcept { return CFStringGetLength(text_.get()); }

std::string CString::str() const {
  const CFRange whole = CFRangeMake(0, getLength());
  CFIndex size = 0;
  CFStringGetBytes(text_.get(), whole, kCFStringEncodingUTF8, '?', false, nullptr, 0, &size);
  std::string bytes(static_cast<std::size_t>(size), '\0');
  CFStringGetBytes(text_.get(), whole, kCFStringEncodingUTF8, '?', false, reinterpret_cast<UInt8*>(bytes.data()), size,
                   nullptr);
  return bytes;
}

CStringRef CString::sprintf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  CStringRef text = vsprintf(format, arguments);
  va_end(arguments);
  return text;
}

CStringRef CString::sprintf(CFStringRef format, ...) {
  va_list arguments;
  va_start(arguments, format);
  CStringRef text = vsprintf(format, arguments);
  va_end(arguments);
  return text;
}

CStringRef CString::vsprintf(const char* format, va_list arguments) {
  if (format == nullptr) return nullptr;
  const CSharedCFRef<CFStringRef> converted(
      CFStringCreateWithCString(kCFAllocatorDefault, format, kCFStringEncodingUTF8));
  return vsprintf(converted.get(), arguments);
}

CStringRef CString::vsprintf(CFStringRef format, va_list arguments) {
  if (format == nullptr) return nullptr;
  return takeOver(CFStringCreateWithFormatAndArguments(kCFAllocatorDefault, nullptr, format, arguments));
}

CStringRef CString::fromInt(long long value) { return sprintf(CFSTR("%lld"), value); }

void CString::append(const CStringRef& text) {
  if (text) append(text->getStringRef());
}

void CString::append(const char* text) {
  if (text == nullptr) return;
  const CSharedCFRef<CFStringRef> converted(
      CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8));
  if (converted) append(converted.get());
}

// A mutable string that nobody else retains grows in place, so that a loop of appends is linear; whoever retained what
// getStringRef() gave keeps an unchanged string.
void CString::append(CFStringRef text) {
  if (!ownsMutable_ || text == text_.get() || CFGetRetainCount(text_.get()) != 1) {
    const CSharedCFRef<CFStringRef> old(text_);  // `text` may be the old string itself
    CFMutableStringRef fresh = CFStringCreateMutableCopy(kCFAllocatorDefault, 0, old.get());
    text_ = CSharedCFRef<CFStringRef>(fresh);
    ownsMutable_ = true;
    CFStringAppend(fresh, text);
  } else {
    CFStringAppend(const_cast<CFMutableStringRef>(text_.get()), text);
  }
  forgetUTF8();
}

void CString::forgetUTF8() noexcept { const std::unique_ptr<const std::string> gone(utf8_.exchange(nullptr)); }

UniChar CString::operator[](CFIndex index) const { return CFStringGetCharacterAtIndex(text_.get(), index); }

bool CString::beginsWith(const CStringRef& other, bool ignoreCase) const {
  if (other.isNull()) return false;
  if (!ignoreCase) return CFStringHasPrefix(text_.get(), other->getStringRef());
  return other->isEmpty() || CFStringFindWithOptions(text_.get(), other->getStringRef(), CFRangeMake(0, getLength()),
                                                     kCFCompareAnchored | flags(ignoreCase), nullptr);
}

bool CString::endsWith(const CStringRef& other, bool ignoreCase) const {
  if (other.isNull()) return false;
  if (!ignoreCase) return CFStringHasSuffix(text_.get(), other->getStringRef());
  return other->isEmpty() ||
         CFStringFindWithOptions(text_.get(), other->getStringRef(), CFRangeMake(0, getLength()),
                                 kCFCompareAnchored | kCFCompareBackwards | flags(ignoreCase), nullptr);
}

bool CString::find(const CStringRef& other, CFIndex start, CFIndex& index, bool ignoreCase) const {
  const CFIndex from = start < 0 ? 0 : start;
  if (other.isNull() || from > getLength()) return false;
  if (other->isEmpty()) {
    index = from;
    return true;
  }
  CFRange place;
  if (!CFStringFindWithOptions(text_.get(), other->getStringRef(), CFRangeMake(from, getLength() - from),
                               flags(ignoreCase), &place)) {
    return false;
  }
  index = place.location;
  return true;
}

bool CString::operator==(const CString& other) const { return CFEqual(text_.get(), other.text_.get()); }

CStringRef CString::shellEscapedFilename() const {
  const std::string name = str();
  if (name.find('\0') != std::string::npos) {
    throw CParamException("CString::shellEscapedFilename: \"%s\" holds a NUL character", name.c_str());
  }
  if (name.empty()) return CSTR("''");
  std::string word;
  word.reserve(name.size() * 2);
  for (const char character : name) {
    // A backslash before a line feed would continue the line and so drop both.
    if (character == '\n') {
      word += "'\n'";
      continue;
    }
    if (!isPlainInShell(static_cast<unsigned char>(character))) word += '\\';
    word += character;
  }
  return CSTR(word);
}

CStringRef CString::nullToEmptyString(const CStringRef& text) { return text ? text : makeShared<CString>(); }

CStringRef CString::emptyToNullString(const CStringRef& text) { return text && !text->isEmpty() ? text : CStringRef(); }

bool operator==(const CStringRef& left, const CStringRef& right) {
  if (left.isNull() || right.isNull()) return left.isNull() && right.isNull();
  return left.get() == right.get() || *left == *right;
}

}  // namespace plinth
