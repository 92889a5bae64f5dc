#include "platform/corefoundation/url_syntax.h"

#include <uriparser/Uri.h>

namespace cf {
namespace {

// A parsed URI, freed with its scope.
class ParsedURI {
 public:
  ParsedURI() noexcept = default;
  ~ParsedURI() { uriFreeUriMembersA(&uri_); }
  ParsedURI(const ParsedURI&) = delete;
  ParsedURI& operator=(const ParsedURI&) = delete;

  // The text must outlive this object.
  bool parse(std::string_view text) {
    const char* errorPosition = nullptr;
    return uriParseSingleUriExA(&uri_, text.data(), text.data() + text.size(), &errorPosition) == URI_SUCCESS;
  }
  UriUriA* get() noexcept { return &uri_; }

 private:
  UriUriA uri_{};
};

int hexadecimalValue(char digit) noexcept {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  return -1;
}

// The characters of "pchar" and "/", but for ";", which older readers take for the beginning of parameters.
bool standsInPath(char character) noexcept {
  if ((character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z')) return true;
  if (character >= '0' && character <= '9') return true;
  return character != '\0' && std::string_view("-._~!$&'()*+,=:@/").find(character) != std::string_view::npos;
}

// The scheme's length, or 0: a letter, then letters, digits, "+", "-" and ".", then a colon.
std::size_t schemeLength(std::string_view text) noexcept {
  const std::size_t end = text.find_first_of(":/?#");
  return end == std::string_view::npos || text[end] != ':' ? 0 : end;
}

}  // namespace

bool isURLReference(std::string_view text) {
  // A string_view may be without data when it is empty, which the parser takes for a missing argument.
  if (text.empty()) return true;
  ParsedURI uri;
  return uri.parse(text);
}

URLParts splitURL(std::string_view text) noexcept {
  URLParts parts;
  if (const std::size_t length = schemeLength(text); length > 0) {
    parts.scheme = text.substr(0, length);
    text.remove_prefix(length + 1);
  }
  if (const std::size_t hash = text.find('#'); hash != std::string_view::npos) {
    parts.fragment = text.substr(hash + 1);
    text = text.substr(0, hash);
  }
  if (const std::size_t mark = text.find('?'); mark != std::string_view::npos) {
    parts.query = text.substr(mark + 1);
    text = text.substr(0, mark);
  }
  if (text.starts_with("//")) {
    text.remove_prefix(2);
    parts.authority = text.substr(0, text.find('/'));
    text.remove_prefix(parts.authority.size());
  }
  parts.path = text;
  return parts;
}

URLAuthority splitAuthority(std::string_view authority) noexcept {
  URLAuthority parts;
  if (authority.data() == nullptr) return parts;
  if (const std::size_t at = authority.rfind('@'); at != std::string_view::npos) {
    const std::string_view userInfo = authority.substr(0, at);
    const std::size_t colon = userInfo.find(':');
    parts.user = userInfo.substr(0, colon);
    if (colon != std::string_view::npos) parts.password = userInfo.substr(colon + 1);
    authority.remove_prefix(at + 1);
  }
  const std::size_t bracket = authority.starts_with('[') ? authority.find(']') : std::string_view::npos;
  const std::size_t colon = authority.find(':', bracket == std::string_view::npos ? 0 : bracket);
  if (colon != std::string_view::npos) parts.port = authority.substr(colon + 1);
  parts.host = bracket == std::string_view::npos ? authority.substr(0, colon) : authority.substr(1, bracket - 1);
  return parts;
}

std::optional<std::string> resolveURL(std::string_view base, std::string_view reference) {
  if (reference.data() == nullptr) reference = "";
  ParsedURI parsedBase;
  ParsedURI parsedReference;
  if (!parsedBase.parse(base) || !parsedReference.parse(reference)) return std::nullopt;
  ParsedURI absolute;
  if (uriAddBaseUriExA(absolute.get(), parsedReference.get(), parsedBase.get(), URI_RESOLVE_STRICTLY) != URI_SUCCESS) {
    return std::nullopt;
  }
  int length = 0;
  if (uriToStringCharsRequiredA(absolute.get(), &length) != URI_SUCCESS) return std::nullopt;
  std::string text(static_cast<std::size_t>(length) + 1, '\0');
  if (uriToStringA(text.data(), absolute.get(), length + 1, nullptr) != URI_SUCCESS) return std::nullopt;
  text.resize(static_cast<std::size_t>(length));
  return text;
}

std::string escapePath(std::string_view bytes, bool isRelative) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string text;
  text.reserve(bytes.size() + bytes.size() / 4);
  for (const char character : bytes) {
    if (standsInPath(character) && !(isRelative && character == ':')) {
      text += character;
    } else {
      const auto byte = static_cast<unsigned char>(character);
      text += '%';
      text += kDigits[byte >> 4];
      text += kDigits[byte & 15];
    }
  }
  return text;
}

std::string decodeEscapes(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      const int high = hexadecimalValue(text[i + 1]);
      const int low = hexadecimalValue(text[i + 2]);
      if (high >= 0 && low >= 0) {
        bytes += static_cast<char>(high * 16 + low);
        i += 2;
        continue;
      }
    }
    bytes += text[i];
  }
  return bytes;
}

std::string_view withoutTrailingSlashes(std::string_view path) noexcept {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return path;
}

std::string_view lastPathComponent(std::string_view path) noexcept {
  path = withoutTrailingSlashes(path);
  if (path == "/") return path;
  return path.substr(path.rfind('/') + 1);
}

std::size_t extensionDot(std::string_view component) noexcept {
  const std::size_t dot = component.rfind('.');
  if (dot == std::string_view::npos || dot + 1 == component.size()) return std::string_view::npos;
  // A name of dots before the last one, as in ".profile" or "...x", is all name.
  if (component.find_first_not_of('.') > dot) return std::string_view::npos;
  return dot;
}

std::string parentPath(std::string_view path) {
  path = withoutTrailingSlashes(path);
  std::string_view last = lastPathComponent(path);
  // "." names the directory before it.
  while (last == ".") {
    path = withoutTrailingSlashes(path.substr(0, path.size() - 1));
    last = lastPathComponent(path);
  }
  if (last == "/") return "/";
  if (last.empty()) return "../";
  if (last == "..") return std::string(path) + "/../";
  path = withoutTrailingSlashes(path.substr(0, path.size() - last.size()));
  if (path.empty()) return "./";
  return path == "/" ? "/" : std::string(path) + "/";
}

}  // namespace cf
