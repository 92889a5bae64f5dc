#include <tovan/tovan_config_file.h>

#include <tovan/cf_util.h>
#include <tovan/constants.h>

#include "platform/system/host.h"
#include "plist/path_text.h"
#include "plist/setting_rows.h"

namespace tovan {
namespace {

using plinth::CSharedCFRef;

CFStringRef sectionKey() { return CFSTR("mervaneconfig"); }

// The computer's name as people gave it; the empty string when it has none.
CFStringRef copyComputerName() {
  const std::string name = platform::machineName();
  const CFStringRef text = CFStringCreateWithCString(kCFAllocatorDefault, name.c_str(), kCFStringEncodingUTF8);
  return text == nullptr ? CFSTR("") : text;
}

constexpr std::array<SettingCode, 3> kAdvertisingCodes = {{{CTovanConfigFile::kAdvertisingDN, CFSTR("DN")},
                                                           {CTovanConfigFile::kAdvertisingMC, CFSTR("MC")},
                                                           {CTovanConfigFile::kAdvertisingRV, CFSTR("RV")}}};

}  // namespace

constinit const CFStringRef CTovanConfigFile::sAllInterfacesValue = CFSTR("allinterfaces");

struct CTovanConfigFile::Table {
  using Row = SettingRow<CTovanConfigFile>;
  using File = CTovanConfigFile;
  using enum SettingType;
  using enum SettingWritten;
  using enum SettingLoad;

  static constexpr std::array<Row, 20> kRows = {{
      {{{.key = CFSTR("StdoutPath"),
         .type = string,
         .written = whenSet,
         .description = "The file that the daemon's output goes to"},
        kept},
       &File::stdoutPath},
      {{{.key = CFSTR("StdoutServicePath"),
         .type = string,
         .written = whenSet,
         .description = "The file that the services' output goes to"},
        kept},
       &File::stdoutServicePath},
      {{{.key = CFSTR("DaemonEnabled"),
         .type = boolean,
         .written = always,
         .description = "Whether the daemon runs on this host",
         .defaultNumber = true}},
       &File::daemonEnabled},
      {{{.key = CFSTR("DaemonPort"),
         .type = int32,
         .written = whenNotDefault,
         .description = "The TCP port of the daemon; 0 reads as the default",
         .defaultConstant = &TovanCorePrivate::kTovanDaemonPortNumber},
        fromUnset},
       &File::daemonPort},
      {{{.key = CFSTR("LaunchContentAgent"),
         .type = boolean,
         .written = whenNotDefault,
         .description = "Whether the content agent is launched",
         .defaultNumber = true}},
       &File::launchContentAgent},
      {{{.key = CFSTR("SharingEnabled"),
         .type = boolean,
         .written = always,
         .description = "Whether this host shares its services with others"}},
       &File::sharingEnabled},
      {{{.key = CFSTR("SharingType"),
         .type = int32,
         .written = always,
         .description = "How this host shares its services; a number that the clients agree on"}},
       &File::sharingType},
      {{{.key = CFSTR("LogToFile"),
         .type = boolean,
         .written = always,
         .description = "Whether every service is started with logging on"}},
       &File::logToFile},
      {{{.key = CFSTR("RequirePassword"),
         .type = boolean,
         .written = always,
         .description = "Whether the shared services ask for the password"}},
       &File::requirePassword},
      {{{.key = CFSTR("ServerPassword"),
         .type = string,
         .written = withCondition,
         .description = "The password of the shared services; not kept while none is required",
         .defaultText = CFSTR(""),
         .condition = CFSTR("RequirePassword")},
        fromUnset},
       &File::serverPassword},
      {{{.key = CFSTR("ServerName"),
         .type = string,
         .written = whenSet,
         .description = "The name under which this host appears; an empty one reads as the default",
         .copyComputedDefault = copyComputerName,
         .computedDefault = "the computer's name"},
        fromUnsetEmpty},
       &File::serverName},
      {{{.key = CFSTR("Advertising"),
         .type = enumeration,
         .written = whenNotDefault,
         .description = "How this host advertises itself",
         .defaultNumber = kAdvertisingRV,
         .codes = kAdvertisingCodes}},
       &File::advertising},
      {{{.key = CFSTR("NetworkConnection"),
         .type = string,
         .written = whenNotDefault,
         .description = "The network interface to use",
         .defaultText = CFSTR("allinterfaces")},
        fromUnset},
       &File::networkConnection},
      {{{.key = CFSTR("AllowVistrelAds"),
         .type = boolean,
         .written = whenNotDefault,
         .description = "Whether advertisements on the local network are allowed",
         .defaultNumber = true}},
       &File::allowVistrelAds},
      {{{.key = CFSTR("AllowRemoteAds"),
         .type = boolean,
         .written = whenNotDefault,
         .description = "Whether remote advertisements are allowed",
         .defaultNumber = true}},
       &File::allowRemoteAds},
      {{{.key = CFSTR("DNSDomain"),
         .type = string,
         .written = whenSet,
         .description = "The DNS domain to advertise in",
         .defaultText = CFSTR("")},
        fromUnset},
       &File::dnsDomain},
      {{{.key = CFSTR("UseDNSDomain"),
         .type = boolean,
         .written = whenNotDefault,
         .description = "Whether the DNS domain is used"}},
       &File::useDNSDomain},
      {{{.key = CFSTR("UsePortRange"),
         .type = boolean,
         .written = whenNotDefault,
         .description = "Whether the services take their ports from the range"}},
       &File::usePortRange},
      {{{.key = CFSTR("PortRangeStart"),
         .type = int32,
         .written = whenNotDefault,
         .description = "The first port of the range"}},
       &File::portRangeStart},
      {{{.key = CFSTR("PortRangePorts"),
         .type = int32,
         .written = whenNotDefault,
         .description = "How many ports the range has"}},
       &File::portRangePorts},
  }};
  static constexpr auto kDescriptions = descriptionsOf(kRows);
};

CTovanConfigFile::CTovanConfigFile()
    : CTovanConfigFile(plinth::CSTR(TovanCorePrivate::kTovanConfigFilePath)->getStringRef()) {}

CTovanConfigFile::CTovanConfigFile(CFStringRef path) : CPropertyListBasicFile(expandedPath(path).get()) { refresh(); }

CTovanConfigFile::~CTovanConfigFile() = default;

void CTovanConfigFile::initRefresh() { resetSettings(Table::kRows, *this); }

bool CTovanConfigFile::refresh() {
  initRefresh();
  const bool read = CPropertyListBasicFile::refresh();
  const CSharedCFRef<CFDictionaryRef> document = CPropertyListBasicFile::toPropertyList();
  const CFTypeRef section = CFDictionaryGetValue(document.get(), sectionKey());
  if (section != nullptr && CFGetTypeID(section) == CFDictionaryGetTypeID()) {
    fromPropertyList(static_cast<CFDictionaryRef>(section));
  }
  applyFallbacks();
  return read;
}

void CTovanConfigFile::fromPropertyList(CFDictionaryRef section) {
  CPropertyListBasicFile::fromPropertyList(section);
  readSettings(Table::kRows, CPropertyListBasicFile::toPropertyList().get(), *this);
  applyFallbacks();
}

void CTovanConfigFile::applyFallbacks() { settleSettings(Table::kRows, *this); }

CSharedCFRef<CFDictionaryRef> CTovanConfigFile::toPropertyList() const {
  const CSharedCFRef<CFMutableDictionaryRef> section(CFUtil::CFDictMakeMutable());
  writeSettings(Table::kRows, *this, section.get());
  return section;
}

void CTovanConfigFile::flush() const {
  flushSection(
      [this](CFMutableDictionaryRef document) { CFUtil::CFDictSet(document, sectionKey(), toPropertyList().get()); });
}

SettingList CTovanConfigFile::settings() noexcept { return Table::kDescriptions; }

CSharedCFRef<CFTypeRef> CTovanConfigFile::copySetting(CFStringRef key) const {
  return copySettingOf(Table::kRows, *this, key);
}

void CTovanConfigFile::setSetting(CFStringRef key, CFTypeRef value) {
  assignSettingOf(Table::kRows, *this, key, value, "CTovanConfigFile::setSetting");
}

}  // namespace tovan
