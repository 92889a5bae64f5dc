// permitted_folder.h: which folders of the library's file may be exported at all. Whoever can write that file is an
// ordinary user; the server that reads the result is not.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace exports {

// Why the folder is not exported; empty when it is. Links on the way are followed first; then it must be a folder, lie
// in one of the roots, or, without roots, belong to the owner of the library's file (root's file may name any).
std::string reasonAgainstFolder(const std::string& path, const std::vector<std::string>& roots, uid_t owner);

}  // namespace exports
