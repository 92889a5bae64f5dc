// What CTovanLogger answers to a request for the log.
#include <tovan/logger.h>

#include "logging/log_format.h"
#include "platform/system/descriptor.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <string_view>

namespace tovan {
namespace {

constexpr std::size_t kPiece = 256;

constexpr std::string_view kErrorTexts[] = {
    " msg=\"Service is down.\"/>\n",
    " msg=\"Logger not available.\"/>\n",
    " msg=\"Get log query not supported.\"/>\n",
    " msg=\"Not logging to file.\"/>\n",
    " msg=\"Log data not XML parsable.\"/>\n",
    " msg=\"Log error.\"/>\n",
};

// Gives a file's bytes piece by piece, reading ahead.
class PieceReader {
 public:
  explicit PieceReader(const platform::Descriptor& file) noexcept : file_(file) {}

  // At most `limit` bytes, which stay until the next call; none at the end and after a failure.
  std::string_view next(std::size_t limit) noexcept {
    if (ahead_.empty()) ahead_ = {buffer_.data(), read()};
    const std::string_view piece = ahead_.substr(0, limit);
    ahead_.remove_prefix(piece.size());
    return piece;
  }

 private:
  std::size_t read() noexcept {
    ssize_t count;
    do {
      count = ::read(file_.get(), buffer_.data(), buffer_.size());
    } while (count < 0 && errno == EINTR);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
  }

  const platform::Descriptor& file_;
  std::array<char, 256 * kPiece> buffer_;
  std::string_view ahead_;
};

// Empty when there is no regular file to read.
platform::Descriptor openForReading(const std::string& path) {
  if (path.find('\0') != std::string::npos) return platform::Descriptor();
  platform::Descriptor file = platform::Descriptor::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
  struct stat status;
  if (file && (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))) file.reset();
  return file;
}

// The file's size between two records: while one is written the file grows piece by piece.
off_t sizeBetweenRecords(const platform::Descriptor& file, CTovanLogger::OStream& writer) {
  const std::lock_guard lock(*writer.mutex());
  return ::lseek(file.get(), 0, SEEK_END);
}

}  // namespace

std::string CTovanLogger::logDataAsString() const {
  if (activeStream_->kind() != kStreamKindFile) return logErrorDataAsString(kLogErrorNotLoggingToFile);
  const platform::Descriptor file = openForReading(logPath()->str());
  const off_t size = file ? sizeBetweenRecords(file, *activeStream_) : 0;
  if (size <= 0 || ::lseek(file.get(), 0, SEEK_SET) != 0) return std::string();
  std::string reply;
  reply.reserve(static_cast<std::size_t>(size) + kLogEnd.size());
  PieceReader reader(file);
  // What is appended meanwhile is not part of it.
  for (auto left = static_cast<std::size_t>(size); left > 0;) {
    const std::string_view piece = reader.next(std::min(left, kPiece));
    if (piece.empty()) break;
    reply += piece;
    left -= piece.size();
  }
  if (!reply.empty()) reply += kLogEnd;
  return reply;
}

std::string CTovanLogger::logErrorDataAsString(LogErrorKind kind) {
  const CTimeStamp moment;
  const auto number = static_cast<std::uint32_t>(kind);  // a negative one is beyond the last
  std::string reply;
  appendFileHeader(reply, moment);
  appendErrorRecordHead(reply, moment);
  reply += kErrorTexts[std::min(number, static_cast<std::uint32_t>(kLogErrorGeneral))];
  reply += kLogEnd;
  return reply;
}

}  // namespace tovan
