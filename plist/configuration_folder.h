// configuration_folder.h: the library's own folder in the user's home, made when it is first written into.
#pragma once

#include <string>

namespace tovan {

// Makes "~/Library/Application Support/Lumisphere", with the folders above it up to the home folder, each 0700, if
// `path` names a file directly in it. False, with nothing made, for every other path; false, with errno, when a folder
// cannot be made. Safe from any thread and against other processes doing the same.
bool makeConfigurationFolderOf(const std::string& path);

}  // namespace tovan
