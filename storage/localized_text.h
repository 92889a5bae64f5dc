// localized_text.h: the storage's texts for people, from the library's own bundle.
#pragma once

#include <plinth/string.h>

namespace tovan {

// The text for the key; the key itself when the bundle has no such text. Throws ISharedStorageException type 5,
// sub-code 2, "TovanCore.framework not found" when the bundle is missing. Any thread.
plinth::CStringRef localizedStorageText(const plinth::CStringRef& key);

}  // namespace tovan
