#include <plinth/exception.h>
#include <plinth/string_utilities.h>

namespace plinth {

CStringRef StringUtilities::localizedString(CFBundleRef bundle, const CStringRef& key) {
  if (bundle == nullptr) throw CNullPointerException("Error: bundle is null!");
  if (key.isNull()) throw CNullPointerException("Error: key is null!");
  const CSharedCFRef<CFStringRef> text(CFBundleCopyLocalizedString(bundle, key->getStringRef(), nullptr, nullptr));
  return CSTR(text.get());
}

}  // namespace plinth
