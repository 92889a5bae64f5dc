#include "launch/service_label.h"

#include <plinth/exception.h>

#include <string>

namespace tovan {

using plinth::CParamException;
using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;

bool isFileName(CFStringRef text) {
  const CStringRef name = CSTR(text);
  if (!name || name->getLength() == 0) return false;
  const std::string bytes = name->str();
  return bytes.find('/') == std::string::npos && bytes.find('\0') == std::string::npos;
}

CStringRef labelForService(const CServiceCacheEntry& entry, unsigned int instance) {
  const CStringRef kind = CString::nullToEmptyString(CSTR(entry.name()));
  const std::string bytes = kind->str();
  const std::string::size_type colon = bytes.find(':');
  if (colon == std::string::npos) {
    throw CParamException("Can't find service family in service kind %s", kind->getUTF8Ptr());
  }
  CStringRef identifier = CSTR(bytes.substr(colon + 1));
  if (!identifier || !isFileName(identifier->getStringRef())) {
    throw CParamException("Invalid service identifier in service kind %s", kind->getUTF8Ptr());
  }
  if (instance == 0) return identifier;
  return CString::sprintf("%@-%llu", identifier->getStringRef(), static_cast<unsigned long long>(instance) + 1);
}

}  // namespace tovan
