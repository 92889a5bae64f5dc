#include <tovan/shared_storage.h>

#include <tovan/shared_storage_exception.h>

#include <plinth/string_utilities.h>

#include <CoreFoundation/CFBundle.h>

namespace tovan {

using plinth::CStringRef;

namespace {

// Retained for the life of the process.
CFBundleRef findLibraryBundle() {
  const CFBundleRef bundle = CFBundleGetBundleWithIdentifier(CFSTR("com.brant.mervane.TovanCore"));
  if (bundle == nullptr) {
    throw ISharedStorageException(kSharedStorageExceptionSystem, kSharedStorageNotFound,
                                  "TovanCore.framework not found");
  }
  CFRetain(bundle);
  return bundle;
}

}  // namespace

ISharedStoragePublisher::~ISharedStoragePublisher() = default;

CSharedStoragePublishedMap ISharedStoragePublisher::getPublishedMap() const { return {}; }

ISharedStorageSubscriber::~ISharedStorageSubscriber() = default;

CSharedStorageSubscribedMap ISharedStorageSubscriber::getSubscribedMap() const { return {}; }

ISharedStorage::~ISharedStorage() = default;

CSharedStorageSubscribedMap ISharedStorage::getSubscribedMap() const {
  return ISharedStorageSubscriber::getSubscribedMap();
}

CStringRef ISharedStorage::localizedStringForKey(const CStringRef& key) {
  static const CFBundleRef bundle = findLibraryBundle();
  return plinth::StringUtilities::localizedString(bundle, key);
}

}  // namespace tovan
