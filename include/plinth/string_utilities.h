// string_utilities.h: localised strings. Stateless; any thread.
#pragma once

#include <plinth/string.h>

#include <CoreFoundation/CFBundle.h>

namespace plinth {

class PLINTH_EXPORT StringUtilities {
 public:
  StringUtilities() = delete;

  // The text for a key in the bundle's strings table ("Localizable"), in the language that the bundle is used in; the
  // key itself when the table has no such key. Throws CNullPointerException "Error: bundle is null!" and "Error: key is
  // null!".
  static CStringRef localizedString(CFBundleRef bundle, const CStringRef& key);
};

}  // namespace plinth
