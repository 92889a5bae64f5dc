// storage_names.h: what people write for folders, remote storage and clients, as the storage takes it. All throw
// CommandError(kUsage), saying what is wrong.
#pragma once

#include <string>

namespace tovanctl {

// The absolute path, from the current folder, without empty and "." components and a slash at the end; ".." takes the
// component before it away, as in a shell's `cd`. Symbolic links stay: they are part of a folder's name. Refused are an
// empty path, a line feed in it, and what is not UTF-8.
std::string storagePath(const std::string& given);

// HOST:/PATH becomes nfs://HOST/PATH, with escapes where a URL needs them; anything with "://" is a URL already.
std::string storageURL(const std::string& given);

// Refuses the names that hold no reference: the empty one and those of the counters.
void checkClientName(const std::string& given);

}  // namespace tovanctl
