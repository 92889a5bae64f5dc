/* What a client in C sees of the constants and the plain functions. */
#include <tovan/constants.h>
#include <tovan/file_util.h>
#include <tovan/framework_location.h>
#include <tovan/version.h>

#include <stdlib.h>
#include <string.h>

/* Makes a failure name itself: the text of the first expectation that does not hold. */
#define EXPECT(expectation) \
  if (!(expectation)) return #expectation

const char* failureOfConstantsInC(void);
const char* failureOfFunctionsInC(const char* home);

static int hasText(CFStringRef string, const char* expected) {
  const char* const text = CFStringGetCStringPtr(string, kCFStringEncodingUTF8);
  return text != NULL && strcmp(text, expected) == 0;
}

const char* failureOfConstantsInC(void) {
  EXPECT(kTovanDaemonPortNumber == 2189);
  EXPECT(strcmp(kLoopbackAddress, "127.0.0.1") == 0);
  EXPECT(kTovanFrameworksInstallPath[0] == '/');
  EXPECT(hasText(kDictKeyServiceKind, "service"));
  EXPECT(hasText(kDictKeyKind, "kind"));
  EXPECT(hasText(kEmptyString, ""));
  EXPECT(hasText(kServiceCacheFilePath, kTovanConfigFilePath));
  EXPECT(hasText(kClusterServiceKind, kClusterAdminServiceKind));
  EXPECT(strcmp(TovanCoreVersionString, "@(#)PROGRAM:TovanCore  PROJECT:TovanCore-303\n") == 0);
  EXPECT(TovanCoreVersionNumber == 303.0);
  return NULL;
}

static const char* failureOfPaths(const char* home) {
  CFStringRef folder = TovanGetHomeDirectory();
  EXPECT(hasText(folder, home));
  CFStringRef stays = TovanExpandTildeInPath(kEmptyString);
  EXPECT(hasText(stays, ""));
  CFStringRef file = TovanExpandTildeInPath(kTovanConfigPath);
  EXPECT(CFStringHasPrefix(file, folder));
  EXPECT(CFStringHasSuffix(file, CFSTR("/Library/Application Support/Lumisphere/")));
  CFStringRef temporary = TovanGetTemporaryDirectory();
  EXPECT(CFStringHasSuffix(temporary, CFSTR("/")));
  CFRelease(temporary);
  CFRelease(file);
  CFRelease(stays);
  CFRelease(folder);
  return NULL;
}

const char* failureOfFunctionsInC(const char* home) {
  const char* const failure = failureOfPaths(home);
  if (failure != NULL) return failure;
  EXPECT(fileExists(home));
  EXPECT(fileSize("/no such file") == -1);
  EXPECT(expandTildeInFilePath("~/no such file") == NULL);
  char* const expanded = expandTildeInFilePath("~");
  EXPECT(expanded != NULL && strcmp(expanded, home) == 0);
  free(expanded);
  EXPECT(getMaxOpenFiles() > 0);
  EXPECT(setMaxOpenFiles(1) == TovanGetMaxOpenFiles());
  EXPECT(TovanSetMaxOpenFiles(1) == getMaxOpenFiles());
  EXPECT(getServiceKindFromBundle(NULL) == NULL);

  CFURLRef cluster = getMervaneFrameworkURL();
  EXPECT(cluster != NULL);
  CFRelease(cluster);
  CFURLRef application = getLumisphereFrameworkURL();
  EXPECT(application != NULL);
  CFRelease(application);
  getLumisphereServiceBundleURLs(NULL, NULL);
  getLumisphereServiceBundleIDs(NULL, NULL);
  return NULL;
}
