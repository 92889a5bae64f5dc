#include <tovan/host_perf_score_file.h>

#include <tovan/cf_util.h>
#include <tovan/constants.h>

#include "plist/path_text.h"

namespace tovan {

namespace {

CFStringRef sectionKey() { return CFSTR("hostperfscore"); }
CFStringRef cpuTypesName() { return CFSTR("CPUTypes"); }

}  // namespace

template class CPropertyListFile<CHostPerfScoreEntry>;

CHostPerfScoreFile::CHostPerfScoreFile() : CHostPerfScoreFile(TovanCorePrivate::kHostPerfScoreFilePath) {}

CHostPerfScoreFile::CHostPerfScoreFile(CFStringRef path) : CPropertyListFile(expandedPath(path).get(), false) {
  refresh();
}

CHostPerfScoreFile::~CHostPerfScoreFile() = default;

bool CHostPerfScoreFile::refresh() {
  const bool read = CPropertyListBasicFile::refresh();
  const plinth::CSharedCFRef<CFDictionaryRef> document = CPropertyListBasicFile::toPropertyList();
  const CFTypeRef section = CFDictionaryGetValue(document.get(), sectionKey());
  if (section != nullptr) fromPropertyList(static_cast<CFDictionaryRef>(section));  // looks at the type itself
  return read;
}

void CHostPerfScoreFile::flush() const {
  flushSection(
      [this](CFMutableDictionaryRef document) { CFUtil::CFDictSet(document, sectionKey(), toPropertyList().get()); });
}

CCPUTypePerfScoreEntry CHostPerfScoreFile::cpuTypes() const {
  CCPUTypePerfScoreEntry entry;
  get(cpuTypesName(), entry);
  return entry;
}

double CHostPerfScoreFile::cpuPerfScore() const { return cpuTypes().cpuPerfScore(); }

}  // namespace tovan
