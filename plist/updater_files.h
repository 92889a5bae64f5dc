// updater_files.h: the files of the configuration updater: whole contents under a lock, and the copy that is kept.
#pragma once

#include <plinth/shared_cf_ref.h>
#include <plinth/string.h>

#include <CoreFoundation/CFData.h>

#include <string>

namespace tovan {

// CFileException "TovanConfigUpdater::FUNCTION: CALL() on file PATH failed, error = REASON", with errno as its code.
[[noreturn]] void throwUpdaterFailure(const char* function, const char* call, const std::string& path, int error);

// The content of an open file. Throws, as copyFile's read(), when it cannot be read.
plinth::CSharedCFRef<CFDataRef> contentOf(int descriptor, const std::string& path);

// Makes these bytes the content of an open file that is locked for writing. Throws as copyFile's write().
void replaceContent(int descriptor, const std::string& path, CFDataRef content);

// The same of a file at a path, which is created when it is missing, under its lock.
void replaceFile(const std::string& path, CFDataRef content);

// Writes a copy of a file's content beside it, onto the disk, named by the local time. The path of the copy.
plinth::CStringRef keepDatedCopy(const std::string& path, CFDataRef content);

}  // namespace tovan
