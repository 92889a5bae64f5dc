// service_util.h: CServiceUtil, how the process of a service is started and set up.
//
// Stateless; any thread may call the first two. A configuration file that cannot be read raises the exceptions of
// CPropertyListBasicFile.
#pragma once

#include <tovan/export.h>
#include <tovan/service_cache_file.h>
#include <tovan/service_config_file.h>

#include <plinth/string.h>

#include <vector>

namespace tovan {

class TOVAN_EXPORT CServiceUtil {
 public:
  CServiceUtil() = delete;

  // Who starts a service.
  enum LaunchFlag : int {
    kLaunchedByDaemon = 1,   // the cluster daemon: every service that is not launchd's
    kLaunchedByLaunchd = 2,  // launchd: the launch hint begins with "launchd."
  };
  static int launchFlagForService(const CServiceCacheEntry& entry);

  // The command line of one instance of a service, counted from 0: the executable, then the options in the order that
  // docs/job-description.md lists. Reads the cluster configuration file. An entry without a path raises
  // CNullPointerException "Error: path is null!".
  static std::vector<plinth::CStringRef> buildServiceArgs(const CServiceCacheEntry& entry,
                                                          const CServiceConfigEntry& config, long instance);

  // Sets up the standard streams of a service process: input from /dev/null, and when the cluster configuration names a
  // "StdoutPath" (a leading "~/" is expanded), output and errors appended to that file, which is created when missing
  // with mode 0666. What cannot be opened leaves its stream as it was. Changes the process's file-creation mask for a
  // moment: call it before starting threads.
  static void setupStdStreams();
};

}  // namespace tovan
