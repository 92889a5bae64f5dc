// host_folder.h: the folder in which a user's host keeps its socket, its locks, its state and its log. Its place
// depends on the user alone (/tmp/tovan-launchd-UID), so that a login, cron and a job all come to the same host;
// TOVAN_LAUNCHD_FOLDER names another one, for a test. It is the user's own and closed to all others, or it is not used.
#pragma once

#include <string>

#include "tools/launchctl/descriptor.h"

namespace launchctl {

inline constexpr const char* kFolderVariable = "TOVAN_LAUNCHD_FOLDER";

class HostFolder {
 public:
  // Makes the folder when it is missing. Failure when it cannot be made, or is a link, another user's or open to
  // others.
  HostFolder();

  const std::string& path() const { return path_; }
  int descriptor() const { return folder_.get(); }

  // A lock file of the folder, held exclusively by this process until the descriptor goes; waits for whoever holds it.
  Descriptor lock(const char* name) const;
  // The whole content of a file; empty when it is missing.
  std::string read(const char* name) const;
  // Puts a file in place in one step. Failure leaves the old one.
  void replace(const char* name, const std::string& content) const;
  void remove(const char* name) const noexcept;
  bool has(const char* name) const noexcept;

  // A socket that listens at the folder's address, or is connected to it: no limit on the folder's length applies.
  // connect() gives an empty descriptor when nobody listens.
  Descriptor listen() const;
  Descriptor connect() const;

 private:
  std::string path_;
  Descriptor folder_;
};

inline constexpr const char* kStateFile = "state.plist";
inline constexpr const char* kLogFile = "log";

}  // namespace launchctl
