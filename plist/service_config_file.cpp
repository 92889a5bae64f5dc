#include <tovan/service_config_file.h>

#include <tovan/cf_util.h>
#include <tovan/constants.h>

#include "plist/dictionary_in.h"
#include "plist/path_text.h"
#include "plist/setting_rows.h"

namespace tovan {

using plinth::CSharedCFRef;

namespace {

CFStringRef sectionKey() { return CFSTR("serviceconfig"); }

CFStringRef asString(const CSharedCFRef<CFTypeRef>& value) {
  const bool is = !value.isNull() && CFGetTypeID(value.get()) == CFStringGetTypeID();
  return is ? static_cast<CFStringRef>(value.get()) : nullptr;
}

CSharedCFRef<CFTypeRef> retained(CFTypeRef value) { return CSharedCFRef<CFTypeRef>::retaining(value); }

}  // namespace

template class CPropertyListFile<CServiceConfigEntry>;

struct CServiceConfigEntry::Table {
  using Row = SettingRow<CServiceConfigEntry>;
  using Entry = CServiceConfigEntry;
  using enum SettingType;
  using enum SettingWritten;

  static constexpr std::array<Row, 4> kRows = {{
      {{{.key = CFSTR("akey"),
         .type = any,
         .written = whenSet,
         .description = "The instance's access key, by convention a string"}},
       &Entry::accessKey_},
      {{{.key = CFSTR("ckey"),
         .type = any,
         .written = whenSet,
         .description = "The instance's capture key, by convention a string"}},
       &Entry::captureKey_},
      {{{.key = CFSTR("cpkey"),
         .type = any,
         .written = whenSet,
         .description = "The instance's capture permission key, by convention a string"}},
       &Entry::capturePermKey_},
      {{{.key = CFSTR("config"),
         .type = any,
         .written = whenSet,
         .description = "The instance's configuration, by convention a dictionary"}},
       &Entry::config_},
  }};
  static constexpr auto kDescriptions = descriptionsOf(kRows);
};

CServiceConfigEntry::CServiceConfigEntry() = default;
CServiceConfigEntry::CServiceConfigEntry(CFStringRef name, CFDictionaryRef dictionary)
    : name_(CSharedCFRef<CFStringRef>::retaining(name)) {
  if (dictionary != nullptr) fromDict(dictionary);
}
CServiceConfigEntry::CServiceConfigEntry(const CServiceConfigEntry&) = default;
CServiceConfigEntry& CServiceConfigEntry::operator=(const CServiceConfigEntry&) = default;
CServiceConfigEntry::~CServiceConfigEntry() = default;

void CServiceConfigEntry::fromDict(CFDictionaryRef dictionary) {
  resetSettings(Table::kRows, *this);
  if (dictionary != nullptr) readSettings(Table::kRows, dictionary, *this);
}

CSharedCFRef<CFMutableDictionaryRef> CServiceConfigEntry::toDict() const {
  CSharedCFRef<CFMutableDictionaryRef> dictionary(CFUtil::CFDictMakeMutable());
  writeSettings(Table::kRows, *this, dictionary.get());
  return dictionary;
}

CFStringRef CServiceConfigEntry::accessKey() const noexcept { return asString(accessKey_); }
CFStringRef CServiceConfigEntry::captureKey() const noexcept { return asString(captureKey_); }
CFStringRef CServiceConfigEntry::capturePermKey() const noexcept { return asString(capturePermKey_); }

void CServiceConfigEntry::setAccessKey(CFStringRef key) { accessKey_ = retained(key); }
void CServiceConfigEntry::setCaptureKey(CFStringRef key) { captureKey_ = retained(key); }
void CServiceConfigEntry::setCapturePermKey(CFStringRef key) { capturePermKey_ = retained(key); }
void CServiceConfigEntry::setConfig(CFTypeRef config) { config_ = retained(config); }

SettingList CServiceConfigEntry::settings() noexcept { return Table::kDescriptions; }

CServiceConfigFile::CServiceConfigFile(CFStringRef serviceName)
    : CServiceConfigFile(serviceName, TovanCorePrivate::kServiceConfigFilePath) {}

CServiceConfigFile::CServiceConfigFile(CFStringRef serviceName, CFStringRef path)
    : CPropertyListFile(expandedPath(path).get(), true),
      serviceName_(serviceName == nullptr ? nullptr : CFStringCreateCopy(kCFAllocatorDefault, serviceName)) {
  refresh();
}

CServiceConfigFile::~CServiceConfigFile() = default;

bool CServiceConfigFile::refresh() {
  const bool read = CPropertyListBasicFile::refresh();
  const CSharedCFRef<CFDictionaryRef> document = CPropertyListBasicFile::toPropertyList();
  const CFDictionaryRef services = dictionaryIn(document.get(), sectionKey());
  const CFDictionaryRef section = services == nullptr ? nullptr : dictionaryIn(services, serviceName());
  if (section != nullptr) fromPropertyList(section);
  return read;
}

void CServiceConfigFile::flush() const {
  flushSection([this](CFMutableDictionaryRef document) {
    const CFDictionaryRef present = dictionaryIn(document, sectionKey());
    const CSharedCFRef<CFMutableDictionaryRef> services(present == nullptr ? CFUtil::CFDictMakeMutable()
                                                                           : CFUtil::CFDictMakeMutableCopy(present));
    CFUtil::CFDictSet(services.get(), serviceName(), toPropertyList().get());
    CFUtil::CFDictSet(document, sectionKey(), services.get());
  });
}

}  // namespace tovan
