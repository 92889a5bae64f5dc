// url.h: CURL, a file or network location.
//
// A CURL is immutable but for setParameterValue, which changes the object it is called on and so every holder of it;
// the copyAnd... operations give new ones. Reading one from several threads is safe. The operations that make a URL
// throw CParamException when no URL comes out, and CNullPointerException "Error: NAME is null!" for an empty holder.
#pragma once

#include <plinth/string.h>

#include <CoreFoundation/CFURL.h>

namespace plinth {

class CURL;
using CURLRef = CSharedObjectRef<CURL>;

class PLINTH_EXPORT CURL : public CDataValue {
 public:
  // Retains.
  explicit CURL(CFURLRef url);
  // A file URL from a path. A relative one is taken from the current directory; no tilde is expanded. Only the POSIX
  // style makes a URL.
  CURL(const CStringRef& path, CFURLPathStyle style, bool isDirectory);

  const char* typeName() const noexcept override;

  // Owned by this object, until setParameterValue() changes it. Never null.
  CFURLRef getURLRef() const noexcept;

  // A new URL with one path component, or a relative path of several, appended.
  CURLRef copyAndAppendString(const CStringRef& component, bool isDirectory) const;
  // The parent.
  CURLRef copyWithoutLastPathComponent() const;
  CStringRef getLastPathComponent() const;
  // A copy of the absolute URL in which every part given replaces the URL's own; an empty holder keeps a part, an empty
  // string takes the host, path or query away. Host and path are plain text; the query is the text behind "?" as a URL
  // has it, in which only characters that no URL can hold are escaped. User, port and fragment stay.
  CURLRef copyAndReplaceComponents(const CStringRef& scheme, const CStringRef& host, const CStringRef& path,
                                   const CStringRef& query) const;
  CURLRef copyAndAppendExtension(const CStringRef& extension) const;
  CURLRef copyWithoutPathExtension() const;
  // An empty holder when there is no extension.
  CStringRef getPathExtension() const;

  // The decoded path, without a slash at its end; an empty holder when there is none or the bytes are not UTF-8.
  CStringRef getFileSystemPath(CFURLPathStyle style = kCFURLPOSIXPathStyle) const;
  // The URL's text, with its percent escapes or decoded (with them when the decoded bytes are not UTF-8).
  CStringRef getString(bool escaped = true) const;
  // Empty holders when the URL has none.
  CStringRef getScheme() const;
  CStringRef getHostName() const;

  // Query parameters, as in "?port=2049&name=a%20b"; a "+" stands for itself.
  // The decoded value of the first parameter of that name, the empty string for one without "=", or `defaultValue` when
  // the query has no such name.
  CStringRef getParameterValue(const CStringRef& name, const CStringRef& defaultValue = nullptr) const;
  // Sets the first parameter of that name, or adds one at the end of the query, escaping both texts; an empty holder
  // for the value takes every parameter of that name away.
  void setParameterValue(const CStringRef& name, const CStringRef& value);

  // The four-character type and creator codes that the file carries (0 when it carries none).
  OSType getFinderType() const;
  OSType getFinderCreator() const;
  // Stores both on the file; false when there is no such file or its file system refuses.
  bool setFinderTypeAndCreator(OSType type, OSType creator);

  // Equal text and base.
  bool operator==(const CURL& other) const;

 protected:
  ~CURL() override;

 private:
  CSharedCFRef<CFURLRef> url_;
};

}  // namespace plinth
