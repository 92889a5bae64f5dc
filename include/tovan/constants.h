/* constants.h: the vocabulary that every process of the cluster shares: the daemon's port, where things lie, the kinds
 * of service and the keys of the dictionaries that travel between processes. Usable from C and C++.
 *
 * In C++ each constant lives in tovan::TovanCorePrivate; in C the same object goes by its plain name. All of them are
 * initialised statically, so a client's static initialisers may read them, from any thread and at any time. Nobody
 * retains or releases them.
 *
 * Paths that begin with "~" are stored unexpanded: expand the tilde where the path is used (TovanExpandTildeInPath).
 * Folder paths that end in "/" keep that slash, so that a file name can be appended as it is. */
#ifndef TOVAN_CONSTANTS_H
#define TOVAN_CONSTANTS_H

#include <tovan/export.h>

#include <CoreFoundation/CFBase.h>

#include <stdint.h>

#if defined(__cplusplus)
namespace tovan::TovanCorePrivate {
extern "C" {
#endif

/* The daemon and its files. */

/* The TCP port that the daemon listens on. */
TOVAN_EXPORT extern const int32_t kTovanDaemonPortNumber;
TOVAN_EXPORT extern const char* const kLoopbackAddress;
/* Where the shared frameworks are installed: an absolute folder, fixed when the library is built. */
TOVAN_EXPORT extern const char* const kTovanFrameworksInstallPath;
/* The configuration file, which holds one section per concern. */
TOVAN_EXPORT extern const char* const kTovanConfigFilePath;
/* The folder of the process logs. */
TOVAN_EXPORT extern const char* const kTovanLogFilePath;

/* Service kinds: a role, a colon and the identifier of the bundle that implements the service. The role is one of
 * "jobcontroller", "requestprocessor", "servicecontroller" and "contentcontroller". */

TOVAN_EXPORT extern const char* const kClusterAdminServiceKind;
TOVAN_EXPORT extern const char* const kClusterUserServiceKind;
TOVAN_EXPORT extern const char* const kContentControllerServiceKind;
TOVAN_EXPORT extern const char* const kExecutorServiceKind;
TOVAN_EXPORT extern const char* const kTranscoderServiceKind;
TOVAN_EXPORT extern const char* const kContentAgentServiceKind;
TOVAN_EXPORT extern const char* const kKlarnClusterAdminServiceKind;
TOVAN_EXPORT extern const char* const kKlarnContentControllerServiceKind;
TOVAN_EXPORT extern const char* const kKlarnTranscoderServiceKind;
/* What people read for kClusterAdminServiceKind. */
TOVAN_EXPORT extern const char* const kClusterAdminServiceDesc;
/* kClusterAdminServiceKind and kClusterAdminServiceDesc again, for code that builds CoreFoundation dictionaries. */
TOVAN_EXPORT extern const CFStringRef kClusterServiceKind;
TOVAN_EXPORT extern const CFStringRef kClusterServiceDesc;

/* Folders and files of the cluster. */

/* The folder of the configuration file, of the storage and of the caches. */
TOVAN_EXPORT extern const CFStringRef kTovanConfigPath;
/* Which processes run. */
TOVAN_EXPORT extern const CFStringRef kTovanPIDFilePath;
TOVAN_EXPORT extern const CFStringRef kTovanFileCachePath;
/* These four are kTovanConfigFilePath on purpose: their data are sections of the one configuration file. */
TOVAN_EXPORT extern const CFStringRef kServiceCacheFilePath;
TOVAN_EXPORT extern const CFStringRef kServiceConfigFilePath;
TOVAN_EXPORT extern const CFStringRef kHostPerfScoreFilePath;
TOVAN_EXPORT extern const CFStringRef kRadHostsFilePath;
/* The job caches, each named after the job controller (or the bundle) that owns it. */
TOVAN_EXPORT extern const CFStringRef kTovanClusterJobCacheFilePath;
TOVAN_EXPORT extern const CFStringRef kTovanClusterJobCacheUserFilePath;
TOVAN_EXPORT extern const CFStringRef kTovanITTConverterJobCacheFilePath;

/* Shared storage. */

/* The roots: by default, where remote storage is mounted, and on this host alone. */
TOVAN_EXPORT extern const CFStringRef kTovanDefaultClusterStoragePath;
TOVAN_EXPORT extern const CFStringRef kTovanClusterStorageMountPath;
TOVAN_EXPORT extern const CFStringRef kTovanLocalClusterStoragePath;
/* Relative to a root. */
TOVAN_EXPORT extern const CFStringRef kTovanClusterStorageSubPath;
TOVAN_EXPORT extern const CFStringRef kTovanClusterSubexpSubPath;
TOVAN_EXPORT extern const CFStringRef kTovanSpooledJobsSubPath;
TOVAN_EXPORT extern const CFStringRef kTovanJobResultsSubPath;
/* The file of export lines that the publisher writes where the system's own is not its to write. */
TOVAN_EXPORT extern const CFStringRef kTovanClusterStorageExportsFilePath;

/* Keys of notification, request and configuration dictionaries. */

TOVAN_EXPORT extern const CFStringRef kEmptyString;

/* What is asked for. */
TOVAN_EXPORT extern const CFStringRef kDictKeyAdd;
TOVAN_EXPORT extern const CFStringRef kDictKeyRemove;
TOVAN_EXPORT extern const CFStringRef kDictKeyReplace;
TOVAN_EXPORT extern const CFStringRef kDictKeyUpdate;
TOVAN_EXPORT extern const CFStringRef kDictKeyMerge;
TOVAN_EXPORT extern const CFStringRef kDictKeyClear;
TOVAN_EXPORT extern const CFStringRef kDictKeyCancelJobs;

/* Which one is meant. */
TOVAN_EXPORT extern const CFStringRef kDictKeyKind; /* "kind"; the service kind is kDictKeyServiceKind */
TOVAN_EXPORT extern const CFStringRef kDictKeySubkind;
TOVAN_EXPORT extern const CFStringRef kDictKeyName;
TOVAN_EXPORT extern const CFStringRef kDictKeyUniqueID;
TOVAN_EXPORT extern const CFStringRef kDictKeyUserID;
TOVAN_EXPORT extern const CFStringRef kDictKeyProcessID;
TOVAN_EXPORT extern const CFStringRef kDictKeyTaskPtr;

/* Access. */
TOVAN_EXPORT extern const CFStringRef kDictKeyAccessKey;
TOVAN_EXPORT extern const CFStringRef kDictKeyCaptureKey;
TOVAN_EXPORT extern const CFStringRef kDictKeyCapturePermKey;

/* Services. */
TOVAN_EXPORT extern const CFStringRef kDictKeyServiceKind; /* "service", since "kind" occurs in the same dictionaries */
TOVAN_EXPORT extern const CFStringRef kDictKeyServiceType;
TOVAN_EXPORT extern const CFStringRef kDictKeyServiceConfigEntry;
TOVAN_EXPORT extern const CFStringRef kDictKeyServiceInstance;
TOVAN_EXPORT extern const CFStringRef kDictKeyServiceList;

/* Settings. */
TOVAN_EXPORT extern const CFStringRef kDictKeyEnabled;
TOVAN_EXPORT extern const CFStringRef kDictKeyPrefs;
TOVAN_EXPORT extern const CFStringRef kDictKeyConfig;
TOVAN_EXPORT extern const CFStringRef kDictKeyLogging;
TOVAN_EXPORT extern const CFStringRef kDictKeyDelay;
TOVAN_EXPORT extern const CFStringRef kDictKeyHeadless;
TOVAN_EXPORT extern const CFStringRef kDictKeyStorage;

#if defined(__cplusplus)
} /* extern "C" */
} /* namespace tovan::TovanCorePrivate */
#endif

#endif
