// local_url.h: which URLs name files of this host.
#pragma once

#include <plinth/string.h>
#include <plinth/url.h>

namespace tovan {

// Whether the URL is a path or a file URL of this host. Not null.
inline bool namesLocalFile(const plinth::CURLRef& url) {
  const plinth::CStringRef scheme = url->getScheme();
  if (scheme && scheme != plinth::CSTR("file")) return false;
  const plinth::CStringRef host = url->getHostName();
  return host.isNull() || host->isEmpty() || host == plinth::CSTR("localhost");
}

}  // namespace tovan
