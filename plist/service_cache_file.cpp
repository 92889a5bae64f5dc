#include <tovan/service_cache_file.h>

#include <tovan/cf_util.h>
#include <tovan/constants.h>

#include "plist/path_text.h"

namespace tovan {

namespace {

CFStringRef sectionKey() { return CFSTR("mervaneservices"); }

}  // namespace

template class CPropertyListFile<CServiceCacheEntry>;

CServiceCacheFile::CServiceCacheFile() : CServiceCacheFile(TovanCorePrivate::kServiceCacheFilePath) {}

CServiceCacheFile::CServiceCacheFile(CFStringRef path) : CPropertyListFile(expandedPath(path).get(), false) {
  refresh();
}

CServiceCacheFile::~CServiceCacheFile() = default;

bool CServiceCacheFile::refresh() {
  const bool read = CPropertyListBasicFile::refresh();
  const plinth::CSharedCFRef<CFDictionaryRef> document = CPropertyListBasicFile::toPropertyList();
  const CFTypeRef section = CFDictionaryGetValue(document.get(), sectionKey());
  if (section != nullptr) fromPropertyList(static_cast<CFDictionaryRef>(section));  // looks at the type itself
  return read;
}

void CServiceCacheFile::flush() const {
  flushSection(
      [this](CFMutableDictionaryRef document) { CFUtil::CFDictSet(document, sectionKey(), toPropertyList().get()); });
}

void CServiceCacheFile::updateRuntimeServicePaths() {
  for (CServiceCacheEntry& entry : entries()) entry.updateRuntimeServicePath();
}

}  // namespace tovan
