#include <plinth/exception.h>
#include <plinth/url.h>

#include "foundation/url_text.h"
#include "platform/system/file_codes.h"

#include <climits>
#include <optional>
#include <string>

namespace plinth {
namespace {

CFStringRef checked(const CStringRef& text, const char* name) {
  if (text.isNull()) throw CNullPointerException("Error: %s is null!", name);
  return text->getStringRef();
}

// Takes over the result of a Create function.
CURLRef newURL(CFURLRef created, const char* operation, const std::string& subject) {
  const CSharedCFRef<CFURLRef> owned(created);
  if (owned.isNull()) throw CParamException("%s(%s): no URL can be made of it", operation, subject.c_str());
  return makeShared<CURL>(owned.get());
}

CStringRef takeOver(CFStringRef owned) {
  const CSharedCFRef<CFStringRef> text(owned);
  return CSTR(text.get());
}

// The file's path in the bytes that the kernel takes; empty when there is none.
std::string fileBytes(CFURLRef url) {
  UInt8 buffer[PATH_MAX];
  if (!CFURLGetFileSystemRepresentation(url, true, buffer, sizeof buffer)) return {};
  return reinterpret_cast<const char*>(buffer);
}

}  // namespace

CURL::CURL(CFURLRef url) : url_(CSharedCFRef<CFURLRef>::retaining(url)) {
  if (url_.isNull()) throw CNullPointerException("Error: url is null!");
}

CURL::CURL(const CStringRef& path, CFURLPathStyle style, bool isDirectory)
    : url_(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, checked(path, "path"), style, isDirectory)) {
  if (url_.isNull()) throw CParamException("CURL::CURL(%s): no URL can be made of it", path->getUTF8Ptr());
}

CURL::~CURL() = default;

const char* CURL::typeName() const noexcept { return "CURL"; }

CFURLRef CURL::getURLRef() const noexcept { return url_.get(); }

CURLRef CURL::copyAndAppendString(const CStringRef& component, bool isDirectory) const {
  const CFStringRef text = checked(component, "component");
  return newURL(CFURLCreateCopyAppendingPathComponent(kCFAllocatorDefault, url_.get(), text, isDirectory),
                "CURL::copyAndAppendString", component->str());
}

CURLRef CURL::copyWithoutLastPathComponent() const {
  return newURL(CFURLCreateCopyDeletingLastPathComponent(kCFAllocatorDefault, url_.get()),
                "CURL::copyWithoutLastPathComponent", getString()->str());
}

CStringRef CURL::getLastPathComponent() const { return takeOver(CFURLCopyLastPathComponent(url_.get())); }

CURLRef CURL::copyAndReplaceComponents(const CStringRef& scheme, const CStringRef& host, const CStringRef& path,
                                       const CStringRef& query) const {
  const CSharedCFRef<CFURLRef> absolute(CFURLCopyAbsoluteURL(url_.get()));
  URLText parts = URLText::split(CSTR(CFURLGetString(absolute.get()))->str());
  if (scheme) parts.scheme = scheme->str();
  if (host) parts.replaceHost(host->str());
  if (path) parts.replacePath(path->str());
  if (query) parts.replaceQuery(query->str());
  const CStringRef text = CSTR(parts.join());
  return newURL(CFURLCreateWithString(kCFAllocatorDefault, text->getStringRef(), nullptr),
                "CURL::copyAndReplaceComponents", text->str());
}

CURLRef CURL::copyAndAppendExtension(const CStringRef& extension) const {
  const CFStringRef text = checked(extension, "extension");
  return newURL(CFURLCreateCopyAppendingPathExtension(kCFAllocatorDefault, url_.get(), text),
                "CURL::copyAndAppendExtension", extension->str());
}

CURLRef CURL::copyWithoutPathExtension() const {
  return newURL(CFURLCreateCopyDeletingPathExtension(kCFAllocatorDefault, url_.get()), "CURL::copyWithoutPathExtension",
                getString()->str());
}

CStringRef CURL::getPathExtension() const { return takeOver(CFURLCopyPathExtension(url_.get())); }

CStringRef CURL::getFileSystemPath(CFURLPathStyle style) const {
  return takeOver(CFURLCopyFileSystemPath(url_.get(), style));
}

CStringRef CURL::getString(bool escaped) const {
  const CFStringRef text = CFURLGetString(url_.get());
  if (!escaped) {
    if (CStringRef decoded = decodeURLText(text)) return decoded;
  }
  return CSTR(text);
}

CStringRef CURL::getScheme() const { return takeOver(CFURLCopyScheme(url_.get())); }

CStringRef CURL::getHostName() const { return takeOver(CFURLCopyHostName(url_.get())); }

CStringRef CURL::getParameterValue(const CStringRef& name, const CStringRef& defaultValue) const {
  checked(name, "name");
  const URLText parts = URLText::split(getString()->str());
  const std::optional<std::string> value = queryValue(parts.query.value_or(""), name->str());
  return value ? CSTR(*value) : defaultValue;
}

void CURL::setParameterValue(const CStringRef& name, const CStringRef& value) {
  checked(name, "name");
  URLText parts = URLText::split(getString()->str());
  const std::optional<std::string> plain = value ? std::optional(value->str()) : std::nullopt;
  const std::string query = queryWithValue(parts.query.value_or(""), name->str(), plain);
  parts.query = query.empty() ? std::nullopt : std::optional(query);
  CSharedCFRef<CFURLRef> changed(
      CFURLCanBeDecomposed(url_.get())
          ? CFURLCreateWithString(kCFAllocatorDefault, CSTR(parts.join())->getStringRef(), CFURLGetBaseURL(url_.get()))
          : nullptr);
  if (changed.isNull()) {
    throw CParamException("CURL::setParameterValue(%s): the URL %s can't have parameters", name->getUTF8Ptr(),
                          getString()->getUTF8Ptr());
  }
  url_ = changed;
}

OSType CURL::getFinderType() const { return platform::fileCodes(fileBytes(url_.get())).type; }

OSType CURL::getFinderCreator() const { return platform::fileCodes(fileBytes(url_.get())).creator; }

bool CURL::setFinderTypeAndCreator(OSType type, OSType creator) {
  return platform::setFileCodes(fileBytes(url_.get()), {type, creator});
}

bool CURL::operator==(const CURL& other) const { return CFEqual(url_.get(), other.url_.get()); }

}  // namespace plinth
