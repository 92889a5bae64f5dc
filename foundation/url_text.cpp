#include "foundation/url_text.h"

#include <CoreFoundation/CFURL.h>

#include <algorithm>
#include <vector>

namespace plinth {
namespace {

// Escapes what a URL cannot hold, and `also`; a "%" stays when the text has escapes already.
std::string escape(const std::string& text, CFStringRef also, bool hasEscapes = false) {
  const CSharedCFRef<CFStringRef> escaped(CFURLCreateStringByAddingPercentEscapes(
      kCFAllocatorDefault, CSTR(text)->getStringRef(), hasEscapes ? CFSTR("%") : nullptr, also, kCFStringEncodingUTF8));
  return CSTR(escaped.get())->str();
}

// What cannot be decoded stands for itself.
std::string decode(const std::string& text) {
  const CStringRef decoded = decodeURLText(CSTR(text)->getStringRef());
  return decoded ? decoded->str() : text;
}

std::vector<std::string> splitQuery(const std::string& query) {
  std::vector<std::string> parameters;
  for (std::size_t start = 0; start < query.size();) {
    const std::size_t end = std::min(query.find('&', start), query.size());
    if (end > start) parameters.push_back(query.substr(start, end - start));
    start = end + 1;
  }
  return parameters;
}

std::string parameterName(const std::string& parameter) { return decode(parameter.substr(0, parameter.find('='))); }

}  // namespace

URLText URLText::split(const std::string& text) {
  URLText parts;
  std::string rest = text;
  const auto cutBehind = [&rest](char mark) -> std::optional<std::string> {
    const std::size_t place = rest.find(mark);
    if (place == std::string::npos) return std::nullopt;
    std::string tail = rest.substr(place + 1);
    rest.resize(place);
    return tail;
  };
  parts.fragment = cutBehind('#');
  parts.query = cutBehind('?');
  if (const std::size_t colon = rest.find_first_of(":/"); colon != std::string::npos && rest[colon] == ':') {
    parts.scheme = rest.substr(0, colon);
    rest.erase(0, colon + 1);
  }
  if (rest.starts_with("//")) {
    const std::size_t end = std::min(rest.find('/', 2), rest.size());
    parts.authority = rest.substr(2, end - 2);
    rest.erase(0, end);
  }
  parts.path = rest;
  return parts;
}

std::string URLText::join() const {
  std::string text;
  if (scheme) text += *scheme + ":";
  if (authority) text += "//" + *authority;
  text += path;
  if (query) text += "?" + *query;
  if (fragment) text += "#" + *fragment;
  return text;
}

void URLText::replaceHost(const std::string& host) {
  const std::string old = authority.value_or("");
  const std::size_t at = old.find('@');
  const std::string user = at == std::string::npos ? "" : old.substr(0, at + 1);
  const std::size_t behindHost =
      old.find(':', std::max(user.size(), old.rfind(']') == std::string::npos ? 0 : old.rfind(']')));
  const std::string port = behindHost == std::string::npos ? "" : old.substr(behindHost);
  // Only an address of version 6 holds colons; it stands in brackets.
  const bool isAddress6 = host.find(':') != std::string::npos && !host.starts_with('[');
  authority = user + (isAddress6 ? "[" + host + "]" : escape(host, CFSTR("/?#@"))) + port;
  if (!path.empty() && !path.starts_with('/')) path.insert(0, "/");
}

void URLText::replacePath(const std::string& plain) {
  // Without a scheme a colon in the first component would be taken for one's end.
  path = escape(plain, scheme ? CFSTR("%?#[];") : CFSTR("%?#[];:"));
  if (authority && !path.empty() && !path.starts_with('/')) path.insert(0, "/");
}

void URLText::replaceQuery(const std::string& text) {
  query = text.empty() ? std::nullopt : std::optional(escape(text, CFSTR("#[]"), true));
}

CStringRef decodeURLText(CFStringRef text) {
  const CSharedCFRef<CFStringRef> decoded(CFURLCreateStringByReplacingPercentEscapesUsingEncoding(
      kCFAllocatorDefault, text, CFSTR(""), kCFStringEncodingUTF8));
  return CSTR(decoded.get());
}

std::optional<std::string> queryValue(const std::string& query, const std::string& name) {
  for (const std::string& parameter : splitQuery(query)) {
    if (parameterName(parameter) != name) continue;
    const std::size_t sign = parameter.find('=');
    return sign == std::string::npos ? std::string() : decode(parameter.substr(sign + 1));
  }
  return std::nullopt;
}

std::string queryWithValue(const std::string& query, const std::string& name, const std::optional<std::string>& value) {
  const CFStringRef reserved = CFSTR("%:/?#[]@!$&'()*+,;=");
  std::vector<std::string> parameters = splitQuery(query);
  const auto named = [&](const std::string& parameter) { return parameterName(parameter) == name; };
  if (!value) {
    std::erase_if(parameters, named);
  } else {
    const std::string setting = escape(name, reserved) + "=" + escape(*value, reserved);
    const auto place = std::find_if(parameters.begin(), parameters.end(), named);
    if (place != parameters.end()) {
      *place = setting;
    } else {
      parameters.push_back(setting);
    }
  }
  std::string joined;
  for (const std::string& parameter : parameters) joined += (joined.empty() ? "" : "&") + parameter;
  return joined;
}

}  // namespace plinth
