// url_text.h: taking a URL's text apart and putting it together again (RFC 3986, appendix B), and the parameters in
// its query. Everything is UTF-8.
#pragma once

#include <plinth/string.h>

#include <optional>
#include <string>

namespace plinth {

// The parts of a URL as they stand in its text, escapes kept; absent and empty are different.
struct URLText {
  std::optional<std::string> scheme;     // without its colon
  std::optional<std::string> authority;  // user, host and port, without the slashes in front
  std::string path;
  std::optional<std::string> query;     // without "?"
  std::optional<std::string> fragment;  // without "#"

  static URLText split(const std::string& text);
  std::string join() const;

  // A plain host name or address; user and port stay.
  void replaceHost(const std::string& host);
  // A plain path.
  void replacePath(const std::string& plain);
  // Text as behind "?"; empty for no query.
  void replaceQuery(const std::string& text);
};

// The text with every escape replaced; an empty holder when the bytes are not UTF-8 then.
CStringRef decodeURLText(CFStringRef text);

// The decoded value of the first parameter of a (plain) name.
std::optional<std::string> queryValue(const std::string& query, const std::string& name);
// The query with the first parameter of that name set, or one added; without a value, with none of that name.
std::string queryWithValue(const std::string& query, const std::string& name, const std::optional<std::string>& value);

}  // namespace plinth
