// url_syntax.h: URLs as text (RFC 3986), without objects.
//
// A view here is absent when its data() is null, and empty when the URL has that part with nothing in it: "x?" has an
// empty query, "x" none.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace cf {

// Where the parts of a URL lie in its text. Only the path is never absent.
struct URLParts {
  std::string_view scheme;
  std::string_view authority;
  std::string_view path;
  std::string_view query;
  std::string_view fragment;

  bool isOpaque() const noexcept {
    return scheme.data() != nullptr && authority.data() == nullptr && !path.starts_with('/');
  }
};

// The parts of an authority, escapes kept.
struct URLAuthority {
  std::string_view user;
  std::string_view password;
  std::string_view host;  // without the brackets of an IPv6 literal
  std::string_view port;
};

// Whether the text is a URI reference.
bool isURLReference(std::string_view text);

// Both split text that is known to be valid; the views point into it.
URLParts splitURL(std::string_view text) noexcept;
URLAuthority splitAuthority(std::string_view authority) noexcept;

// `reference` resolved against the absolute `base` (section 5.2); nothing when that cannot be done.
std::optional<std::string> resolveURL(std::string_view base, std::string_view reference);

// A path's bytes with everything escaped that the path of a URL cannot hold. `isRelative` is set for text that may come
// to stand at the beginning of a URL, where a colon would end a scheme.
std::string escapePath(std::string_view bytes, bool isRelative);

// The bytes that escaped text stands for. A malformed escape stands for itself.
std::string decodeEscapes(std::string_view text);

// Paths as text; they work on escaped and on plain paths alike.

// Without the slashes at its end; "/" (and only slashes) gives "/".
std::string_view withoutTrailingSlashes(std::string_view path) noexcept;
// The last component without slashes: "/" for the root, "" for an empty path.
std::string_view lastPathComponent(std::string_view path) noexcept;
// Where in a component the "." of its extension stands, or npos: neither the first nor the last character is one.
std::size_t extensionDot(std::string_view component) noexcept;
// The path of the parent with a slash at its end.
std::string parentPath(std::string_view path);

}  // namespace cf
