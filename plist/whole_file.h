// whole_file.h: the content of an open file, read and written in one piece.
//
// All of these leave errno on failure, begin again when a signal comes before the first byte, and count a short
// transfer as a failure (EIO). The caller holds the file's lock.
#pragma once

#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CFData.h>

#include <sys/types.h>

namespace tovan {

// Empty on failure; a folder is the error EISDIR.
plinth::CSharedCFRef<CFDataRef> readWhole(int descriptor);

// Writes the bytes from the file's beginning on, and leaves what lies behind them. The space is reserved first, so that
// the file is complete or untouched unless the process is killed meanwhile.
bool writeWhole(int descriptor, CFDataRef data);

// Cuts the file off behind that many bytes.
bool truncateTo(int descriptor, off_t size);

}  // namespace tovan
