// home.h: the user's home and temporary directories. Safe from any thread as long as none changes the environment.
#pragma once

#include "platform/system/export.h"

#include <string>

namespace platform {

// $HOME when it is an absolute path, else the home directory of the password entry of the effective user; without
// slashes at its end ("/" itself stays). Empty when there is neither. Nothing is looked up on disk: the directory may
// be missing.
PLATFORM_EXPORT std::string homeDirectory();

// $TMPDIR when it is an absolute path, else "/tmp"; with exactly one slash at its end, so that a file name can be
// appended.
PLATFORM_EXPORT std::string temporaryDirectory();

}  // namespace platform
