// CSharedStorageUtils: publishing one file by itself, through the storage's server.
#include <tovan/nfs_shared_storage.h>
#include <tovan/shared_storage_utils.h>

#include "storage/subexport.h"

namespace tovan {

using plinth::CURLRef;

CURLRef CSharedStorageUtils::beginSubexport(const CURLRef& url) {
  const ISharedStoragePublisherRef publisher =
      CNFSSharedStorage::NewPublisherClient(CNFSSharedStorage::kNotificationRPC);
  return tovan::beginSubexport(url, *publisher);
}

void CSharedStorageUtils::endSubexport(const CURLRef& url, bool removesFolder) {
  const ISharedStoragePublisherRef publisher =
      CNFSSharedStorage::NewPublisherClient(CNFSSharedStorage::kNotificationRPC);
  tovan::endSubexport(url, removesFolder, *publisher);
}

}  // namespace tovan
