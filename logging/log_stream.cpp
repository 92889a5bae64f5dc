#include <tovan/log_stream.h>

#include <plinth/exception.h>

#include "logging/file_stream.h"
#include "logging/log_format.h"
#include "logging/message_text.h"

#include <mutex>
#include <ostream>
#include <utility>

namespace tovan {
namespace {

// Buffers that one long message has made larger are not kept for the next.
constexpr std::size_t kKeptCapacity = 65536;

void reset(std::string& buffer) {
  if (buffer.capacity() > kKeptCapacity) {
    buffer = std::string();
  } else {
    buffer.clear();
  }
}

}  // namespace

// The text of a whole message as it stands in a record. It is made before the stream is locked.
class CTovanLogger::OStream::Piece {
 public:
  explicit Piece(std::string_view message) : text_(recordText(message, storage_)) {}
  Piece(const Piece&) = delete;
  Piece& operator=(const Piece&) = delete;
  std::string_view text() const noexcept { return text_; }

 private:
  std::string storage_;
  std::string_view text_;
};

CTovanLogger::OStream::OStream(StreamKind kind)
    : mutex_(new plinth::CRecursiveMutex()),
      kind_(kind),
      path_(new plinth::CString()),
      heads_(std::make_unique<RecordHeads>()) {}

CTovanLogger::OStream::OStream(StreamKind kind, std::ostream& target, const plinth::CStringRef& path)
    : mutex_(new plinth::CRecursiveMutex()),
      kind_(kind),
      target_(&target),
      path_(plinth::CString::nullToEmptyString(plinth::CSTR(path))),
      heads_(std::make_unique<RecordHeads>()) {}

CTovanLogger::OStream::~OStream() = default;

std::ostream* CTovanLogger::OStream::target() const {
  const std::lock_guard lock(*mutex_);
  return target_;
}

plinth::CStringRef CTovanLogger::OStream::path() const { return plinth::CSTR(path_); }

void CTovanLogger::OStream::redirect(StreamKind kind, std::ostream* target) {
  const std::lock_guard lock(*mutex_);
  kind_ = kind;
  target_ = target;
  file_ = dynamic_cast<FileStream*>(target);
}

void CTovanLogger::OStream::throwIfFailed() const {
  if (target_ == nullptr || !target_->fail()) return;
  throw plinth::CException(plinth::kExceptionTypeStream, "CTovanLogger::OStream stream error: exception flags = %x",
                           static_cast<unsigned>(target_->exceptions()));
}

void CTovanLogger::OStream::write(std::string_view text) {
  if (kind() == kStreamKindNull || text.empty()) return;
  const bool isEnd = text.back() == '\n';
  if (!isEnd) return add(text, true);
  text = text.substr(0, text.find_last_not_of('\n') + 1);
  const Piece whole(text);
  const std::lock_guard lock(*mutex_);
  if (kind() == kStreamKindNull) return;
  throwIfFailed();
  if (!message_.empty()) {
    message_ += text;
    completeMessage();
  } else if (!text.empty()) {
    beginRecord();
    writeRecord(whole.text());
  }
}

void CTovanLogger::OStream::append(std::string_view text) {
  if (kind() != kStreamKindNull && !text.empty()) add(text, false);
}

void CTovanLogger::OStream::add(std::string_view text, bool mayFail) {
  const std::lock_guard lock(*mutex_);
  if (kind() == kStreamKindNull) return;
  if (mayFail) throwIfFailed();
  if (message_.empty()) beginRecord();
  message_ += text;
}

void CTovanLogger::OStream::beginRecord() {
  record_.clear();
  heads_->append(record_, level());
}

// The message is done with whatever becomes of its record.
void CTovanLogger::OStream::completeMessage() {
  const std::string message = std::move(message_);
  message_.clear();
  writeRecord(Piece(message).text());
}

void CTovanLogger::OStream::writeRecord(std::string_view text) {
  std::string record = std::move(record_);
  record += text;
  record += kRecordTail;
  put(record);
  reset(record);
  record_ = std::move(record);
}

void CTovanLogger::OStream::put(std::string_view bytes) {
  if (file_ != nullptr) return file_->put(bytes);
  if (target_ == nullptr) return;
  target_->write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  target_->flush();
}

void CTovanLogger::OStream::writeDirectly(std::string_view bytes) {
  const std::lock_guard lock(*mutex_);
  put(bytes);
}

void CTovanLogger::OStream::writeElement(const plinth::CXMLService& element) {
  if (kind() == kStreamKindNull) return;
  std::string text = element.copyToCString()->str();
  if (plinth::CXMLService::HasXMLHeader(plinth::CSTR(text))) text.erase(0, text.find("?>") + 2);
  text += '\n';
  const std::lock_guard lock(*mutex_);
  if (kind() == kStreamKindNull) return;
  throwIfFailed();
  if (!message_.empty()) completeMessage();
  put(text);
}

void CTovanLogger::OStream::flush() {
  if (kind() == kStreamKindNull) return;
  const std::lock_guard lock(*mutex_);
  if (target_ != nullptr) target_->flush();
}

CTovanLogger::OBufferStream::OBufferStream() : OStream(kStreamKindConsole) {}

CTovanLogger::OBufferStream::~OBufferStream() = default;

CTovanLogger::ONullStream::ONullStream()
    : OStream(kStreamKindNull),
      file_(std::make_unique<FileStream>(
          platform::AppendFile::open("/dev/null", platform::AppendFile::FolderLink::allowed))) {
  redirect(kStreamKindNull, file_.get());
}

CTovanLogger::ONullStream::~ONullStream() = default;

}  // namespace tovan
