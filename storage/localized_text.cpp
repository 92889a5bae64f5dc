#include "storage/localized_text.h"

#include <plinth/shared_cf_ref.h>
#include <plinth/string_utilities.h>
#include <tovan/shared_storage_exception.h>

#include "storage/storage_failure.h"

namespace tovan {

plinth::CStringRef localizedStorageText(const plinth::CStringRef& key) {
  const CFBundleRef bundle = CFBundleGetBundleWithIdentifier(CFSTR("com.brant.mervane.TovanCore"));
  if (bundle == nullptr) {
    throw ISharedStorageException(kSharedStorageSystemFailure, static_cast<char>(StorageSubCode::missing),
                                  "TovanCore.framework not found");
  }
  return plinth::StringUtilities::localizedString(bundle, key);
}

}  // namespace tovan
