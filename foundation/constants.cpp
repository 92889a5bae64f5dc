#include <tovan/constants.h>

#include <CoreFoundation/CFString.h>

#include <cstdint>

namespace tovan::TovanCorePrivate {

// The pieces of several names.
#define CONFIG_FOLDER "~/Library/Application Support/Lumisphere/"
#define CONFIG_FILE CONFIG_FOLDER "LumisphereConfig.plist"
#define ADMIN_KIND "jobcontroller:com.brant.mervane.cluster.admin"
#define ADMIN_DESCRIPTION "Mervane Cluster Admin"

extern "C" {

constinit const std::int32_t kTovanDaemonPortNumber = 2189;
constinit const char* const kLoopbackAddress = "127.0.0.1";
constinit const char* const kTovanFrameworksInstallPath = TOVAN_FRAMEWORKS_INSTALL_PATH;
constinit const char* const kTovanConfigFilePath = CONFIG_FILE;
constinit const char* const kTovanLogFilePath = "~/Library/Logs/Lumisphere/";

constinit const char* const kClusterAdminServiceKind = ADMIN_KIND;
constinit const char* const kClusterUserServiceKind = "jobcontroller:com.brant.mervane.cluster.user";
constinit const char* const kContentControllerServiceKind = "requestprocessor:com.brant.mervane.contentcontroller";
constinit const char* const kExecutorServiceKind = "servicecontroller:com.brant.mervane.executor";
constinit const char* const kTranscoderServiceKind = "servicecontroller:com.brant.klarn.transcoderx";
constinit const char* const kContentAgentServiceKind = "contentcontroller:com.brant.mervane.contentagent";
constinit const char* const kKlarnClusterAdminServiceKind = "jobcontroller:com.brant.lumisphere.cluster.admin";
constinit const char* const kKlarnContentControllerServiceKind =
    "requestprocessor:com.brant.lumisphere.contentcontroller";
constinit const char* const kKlarnTranscoderServiceKind = "servicecontroller:com.brant.klarn.transcoder.klarn";
constinit const char* const kClusterAdminServiceDesc = ADMIN_DESCRIPTION;
constinit const CFStringRef kClusterServiceKind = CFSTR(ADMIN_KIND);
constinit const CFStringRef kClusterServiceDesc = CFSTR(ADMIN_DESCRIPTION);

constinit const CFStringRef kTovanConfigPath = CFSTR(CONFIG_FOLDER);
constinit const CFStringRef kTovanPIDFilePath = CFSTR(CONFIG_FOLDER "LumispherePID.plist");
constinit const CFStringRef kTovanFileCachePath = CFSTR(CONFIG_FOLDER "Cache");
constinit const CFStringRef kServiceCacheFilePath = CFSTR(CONFIG_FILE);
constinit const CFStringRef kServiceConfigFilePath = CFSTR(CONFIG_FILE);
constinit const CFStringRef kHostPerfScoreFilePath = CFSTR(CONFIG_FILE);
constinit const CFStringRef kRadHostsFilePath = CFSTR(CONFIG_FILE);
constinit const CFStringRef kTovanClusterJobCacheFilePath =
    CFSTR(CONFIG_FOLDER "jobcontroller:com.brant.mervane.cluster.jobcache.db");
constinit const CFStringRef kTovanClusterJobCacheUserFilePath =
    CFSTR(CONFIG_FOLDER "jobcontroller:com.brant.lumisphere.cluster.jobcache.db");
constinit const CFStringRef kTovanITTConverterJobCacheFilePath =
    CFSTR(CONFIG_FOLDER "com.brant.lumisphere.LKCaptionSubtitleProcessor.jobcache.db");

constinit const CFStringRef kTovanDefaultClusterStoragePath = CFSTR(CONFIG_FOLDER "Storage/");
constinit const CFStringRef kTovanClusterStorageMountPath =
    CFSTR("/Users/Shared/Library/Application Support/Lumisphere/Storage/");
constinit const CFStringRef kTovanLocalClusterStoragePath = CFSTR("/tmp/mervane");
constinit const CFStringRef kTovanClusterStorageSubPath = CFSTR("shared");
constinit const CFStringRef kTovanClusterSubexpSubPath = CFSTR("subexp");
constinit const CFStringRef kTovanSpooledJobsSubPath = CFSTR("jobs");
constinit const CFStringRef kTovanJobResultsSubPath = CFSTR("shared/results");
constinit const CFStringRef kTovanClusterStorageExportsFilePath = CFSTR(CONFIG_FOLDER "exports");

constinit const CFStringRef kEmptyString = CFSTR("");

constinit const CFStringRef kDictKeyAdd = CFSTR("add");
constinit const CFStringRef kDictKeyRemove = CFSTR("remove");
constinit const CFStringRef kDictKeyReplace = CFSTR("replace");
constinit const CFStringRef kDictKeyUpdate = CFSTR("update");
constinit const CFStringRef kDictKeyMerge = CFSTR("merge");
constinit const CFStringRef kDictKeyClear = CFSTR("clear");
constinit const CFStringRef kDictKeyCancelJobs = CFSTR("cancelJobs");

constinit const CFStringRef kDictKeyKind = CFSTR("kind");
constinit const CFStringRef kDictKeySubkind = CFSTR("subkind");
constinit const CFStringRef kDictKeyName = CFSTR("name");
constinit const CFStringRef kDictKeyUniqueID = CFSTR("uniqueID");
constinit const CFStringRef kDictKeyUserID = CFSTR("uid");
constinit const CFStringRef kDictKeyProcessID = CFSTR("pid");
constinit const CFStringRef kDictKeyTaskPtr = CFSTR("taskPtr");

constinit const CFStringRef kDictKeyAccessKey = CFSTR("akey");
constinit const CFStringRef kDictKeyCaptureKey = CFSTR("ckey");
constinit const CFStringRef kDictKeyCapturePermKey = CFSTR("cpkey");

constinit const CFStringRef kDictKeyServiceKind = CFSTR("service");
constinit const CFStringRef kDictKeyServiceType = CFSTR("serviceType");
constinit const CFStringRef kDictKeyServiceConfigEntry = CFSTR("serviceConfigEntry");
constinit const CFStringRef kDictKeyServiceInstance = CFSTR("serviceInstance");
constinit const CFStringRef kDictKeyServiceList = CFSTR("serviceList");

constinit const CFStringRef kDictKeyEnabled = CFSTR("enabled");
constinit const CFStringRef kDictKeyPrefs = CFSTR("prefs");
constinit const CFStringRef kDictKeyConfig = CFSTR("config");
constinit const CFStringRef kDictKeyLogging = CFSTR("logging");
constinit const CFStringRef kDictKeyDelay = CFSTR("delay");
constinit const CFStringRef kDictKeyHeadless = CFSTR("headless");
constinit const CFStringRef kDictKeyStorage = CFSTR("storage");

}  // extern "C"

#undef CONFIG_FOLDER
#undef CONFIG_FILE
#undef ADMIN_KIND
#undef ADMIN_DESCRIPTION

}  // namespace tovan::TovanCorePrivate
