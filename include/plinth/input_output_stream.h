// input_output_stream.h: CInputOutputStream, an unbuffered file stream on a URL.
//
// Opening fails with CFileException, everything after it with CIOException; both carry the errno as code and name the
// operation, the path in parentheses and the system's reason. One stream is used by one thread at a time.
#pragma once

#include <plinth/buffer.h>
#include <plinth/url.h>

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace plinth {

class CInputOutputStream;
using CInputOutputStreamRef = CSharedObjectRef<CInputOutputStream>;

class PLINTH_EXPORT CInputOutputStream : public CSharedObject {
 public:
  enum class Mode {
    read,             // the file must exist
    write,            // makes the file, or empties it
    readWrite,        // makes the file, or keeps what it holds
    append,           // makes the file; every write goes to its end, wherever that is by then
    createExclusive,  // for reading and writing; the file must not exist
  };
  enum class Origin { start, current, end };

  // Opens the file, close-on-exec. `permission` is given to a file that is made, less the process's umask.
  // Throws CNullPointerException "Error: url is null!" for an empty holder, CParamException for a URL that is no file
  // URL or has no path, CFileException when the file cannot be opened or is a folder, a FIFO or a socket (such a name
  // never makes the call wait).
  static CInputOutputStreamRef NewInputOutput(const CURLRef& url, Mode mode, mode_t permission = 0644);

  // Reads up to `size` bytes; fewer only at the end of the file. The result is how many, 0 at the end.
  std::size_t read(void* bytes, std::size_t size);
  // The same into a buffer, which then has exactly the bytes read.
  std::size_t read(CBuffer& buffer, std::size_t size);
  // Writes all bytes or throws; what was written before a failure stays. Beyond the process's limit for file sizes that
  // is EFBIG, provided that the process ignores SIGXFSZ.
  void write(const void* bytes, std::size_t size);
  void write(const CBuffer& buffer);

  // Moves the position, which may lie behind the end, and gives the new one, in bytes from the start.
  std::int64_t seek(std::int64_t offset, Origin origin = Origin::start);
  std::int64_t tell();
  // The file's size in bytes at this moment.
  std::int64_t size();
  // Cuts the file or fills it up with zeros; the position stays.
  void truncate(std::int64_t size);
  // Waits until the storage device has what was written.
  void flush();
  // Closes the file; a stream closed already is left alone. Every other operation then throws (EBADF).
  void close();
  bool isOpen() const noexcept { return descriptor_ >= 0; }

  const CURLRef& getURL() const noexcept { return url_; }
  Mode getMode() const noexcept { return mode_; }

 protected:
  // Closes the file; a failure is not reported (close() reports it).
  ~CInputOutputStream() override;

 private:
  CInputOutputStream(const CURLRef& url, const std::string& path, Mode mode);
  CInputOutputStream(const CInputOutputStream&) = delete;
  CInputOutputStream& operator=(const CInputOutputStream&) = delete;
  // Reports a failed system call.
  [[noreturn]] void fail(const char* operation, const char* action, int error) const;

  CURLRef url_;
  std::string path_;
  Mode mode_;
  int descriptor_ = -1;
};

}  // namespace plinth
