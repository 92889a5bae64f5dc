// streams.h: a job's standard streams. Used in a freshly forked child: only async-signal-safe calls.
#pragma once

namespace launchctl {

// Opens the three files (null or empty: the null device) at descriptors 0, 1 and 2. Output is appended, to a new file
// of mode 0644 when there is none. Links are not followed and nothing blocks: an input or output must be a regular file
// or a character device. 0 when all is well, else an errno; *failed is then the path in question.
int openStreams(const char* in, const char* out, const char* err, const char** failed) noexcept;

}  // namespace launchctl
