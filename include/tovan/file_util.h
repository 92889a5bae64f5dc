/* file_util.h: the process's open-file limit, the home and temporary folders, tilde expansion and file tests, as plain
 * functions usable from C and C++, and in C++ as tovan::CFileUtil too.
 *
 * Nothing here throws; a failure is false, NULL or -1. Only the functions of the open-file limit write messages, and
 * those go to standard error. All may be called from any thread. */
#ifndef TOVAN_FILE_UTIL_H
#define TOVAN_FILE_UTIL_H

#include <tovan/export.h>

#include <CoreFoundation/CFString.h>

#include <stdbool.h>
#include <stdint.h>
#include <sys/types.h>

TOVAN_EXTERN_C_BEGIN

/* The user who is logged in at the screen: the owner of /dev/console; (uid_t)-1 when that cannot be told. */
TOVAN_EXPORT uid_t currentUser(void);

/* Whether the path names something that can be examined; symbolic links are followed. */
TOVAN_EXPORT bool fileExists(const char* path);

/* In bytes, symbolic links followed; -1 when there is no such file. */
TOVAN_EXPORT int64_t fileSize(const char* path);

/* The path with a leading "~" or "~user" and wildcard characters expanded, as the shell does it: the first match in
 * sorted order, or NULL when nothing of that name exists. The caller frees the result with free(). For a path that
 * need not exist, use TovanExpandTildeInPath. */
TOVAN_EXPORT char* expandTildeInFilePath(const char* path);

/* The soft limit of open files, INT64_MAX when it is unlimited. -1 on failure, with the line
 * "[PID]: getrlimit(RLIMIT_NOFILE) failed: REASON" on standard error. */
TOVAN_EXPORT int64_t getMaxOpenFiles(void);

/* Raises the soft limit of open files to n; it is never lowered. Gives the limit that then holds: n, or the old one
 * when that is enough already or n lies above the hard limit. -1 on failure, with the line of getMaxOpenFiles or
 * "[PID]: setrlimit(RLIMIT_NOFILE, SOFT/HARD) failed: REASON" on standard error. */
TOVAN_EXPORT int64_t setMaxOpenFiles(int64_t n);

/* The same two again, and setMaxOpenFiles(2048). */
TOVAN_EXPORT int64_t TovanGetMaxOpenFiles(void);
TOVAN_EXPORT int64_t TovanSetMaxOpenFiles(int64_t n);
TOVAN_EXPORT int64_t TovanSetDefaultMaxOpenFiles(void);

/* The user's home folder: $HOME when it is an absolute path, else the password entry's; NULL when neither tells. No
 * trailing slash. Callers are served one at a time. The caller owns the result. */
TOVAN_EXPORT CFStringRef TovanGetHomeDirectory(void);

/* The folder for temporary files: $TMPDIR when it is an absolute path, else "/tmp", with a trailing slash. The caller
 * owns the result. */
TOVAN_EXPORT CFStringRef TovanGetTemporaryDirectory(void);

/* A path that begins with "~/" with the home folder in place of the tilde; NULL when there is no home folder. Every
 * other path, a lone "~" and "~user" among them, is given back as it is. Nothing need exist. NULL gives NULL. The
 * caller owns the result. */
TOVAN_EXPORT CFStringRef TovanExpandTildeInPath(CFStringRef path);

TOVAN_EXTERN_C_END

#if defined(__cplusplus)

namespace tovan {

/* The functions above, under the names that the library's own code uses. */
class TOVAN_EXPORT CFileUtil {
 public:
  CFileUtil() = delete;

  static int64_t getMaxOpenFiles();
  static int64_t setMaxOpenFiles(int64_t n);
  static int64_t setDefaultMaxOpenFiles();
  static CFStringRef getHomeDirectory();
  static CFStringRef getTemporaryDirectory();
  static CFStringRef expandTildeInPath(CFStringRef path);
};

}  // namespace tovan

#endif

#endif
