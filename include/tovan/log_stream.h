// log_stream.h: the streams that CTovanLogger::log() hands out, and the operators that write into them.
//
// A message is written in pieces and ended by a newline at the end of a piece, or by endl:
//
//   logger->log(3) << "mounted " << url << " after " << seconds << " s" << endl;
//
// The stream makes one line of it, <log .../>, in which the text is escaped where that is needed, and writes the line
// to its target in one piece. Time and level of the line are those at its first piece. Newlines within a message stay;
// those at its end all end it together, and a message of newlines only is none.
//
// Failures. The text operators (all that may end a message) and elements throw plinth::CException with code 3 and the
// message "CTovanLogger::OStream stream error: exception flags = %x" (the target's exception mask) when the target has
// failed before, and keep the message as far as it has come. A write that fails makes the target fail, which shows with
// the next one: the line itself is lost, or torn. A standard error that is closed or a pipe that nobody reads any more
// swallows what is written, and is no failure.
//
// Threads. Every operator may be called from any thread, and a finished line is always written as a whole. But a
// stream holds one message at a time: pieces of several threads get into one line. Threads that share a logger hand
// over each message in one piece that ends in a newline.
#pragma once

#include <plinth/url.h>
#include <plinth/xml_service.h>
#include <tovan/logger.h>
#include <tovan/time_stamp.h>

#include <atomic>
#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

namespace tovan {

class RecordHeads;

// A stream with a target. It belongs to whoever makes it, who mostly hands it to CTovanLogger::startupLogging(). It can
// be written into by itself as well. A stream without a target writes nowhere.
class TOVAN_EXPORT CTovanLogger::OStream : public virtual plinth::CSharedObject {
 public:
  explicit OStream(StreamKind kind);
  // The target must live as long as the stream. The path is that of the file behind a stream of kind file; an empty
  // holder counts as the empty path.
  OStream(StreamKind kind, std::ostream& target, const plinth::CStringRef& path);
  OStream(const OStream&) = delete;
  OStream& operator=(const OStream&) = delete;

  StreamKind kind() const noexcept { return kind_.load(std::memory_order_relaxed); }
  // Of the next message to begin.
  unsigned int level() const noexcept { return level_.load(std::memory_order_relaxed); }
  void setLevel(unsigned int level) noexcept {
    if (level_.load(std::memory_order_relaxed) != level) level_.store(level, std::memory_order_relaxed);
  }
  // Null when there is none.
  std::ostream* target() const;
  // Never an empty holder.
  plinth::CStringRef path() const;
  // The recursive mutex that guards all writing. Whoever holds it writes several pieces as one.
  const plinth::CMutexRef& mutex() const noexcept { return mutex_; }

  // What the operators below do. On a stream of kind null they all do nothing.
  void write(std::string_view text);   // a piece, which may end the message; the empty text does nothing
  void append(std::string_view text);  // a piece that never ends the message, and never throws the stream error
  void writeElement(const plinth::CXMLService& element);
  void flush();  // the target

 protected:
  ~OStream() override;

 private:
  friend class CTovanLogger;
  class Piece;

  void redirect(StreamKind kind, std::ostream* target);
  void add(std::string_view text, bool mayFail);
  void writeDirectly(std::string_view bytes);
  // The caller of these holds the mutex.
  void put(std::string_view bytes);
  void throwIfFailed() const;
  void beginRecord();
  void completeMessage();
  void writeRecord(std::string_view text);

  plinth::CMutexRef mutex_;
  std::atomic<StreamKind> kind_;
  std::atomic<unsigned int> level_ = kDefaultLevel;
  std::ostream* target_ = nullptr;
  FileStream* file_ = nullptr;  // the target when it is one of the logger's own
  plinth::CStringRef path_;
  std::string message_;  // the message under construction
  std::string record_;   // its line, as far as it is made: the head from the first piece on
  std::unique_ptr<RecordHeads> heads_;
};

// The stream of a logger's messages, of kind console at first.
class TOVAN_EXPORT CTovanLogger::OBufferStream : public CTovanLogger::OStream {
 public:
  OBufferStream();

 protected:
  ~OBufferStream() override;
};

// The stream of the messages that are filtered out. Its target is "/dev/null".
class TOVAN_EXPORT CTovanLogger::ONullStream : public CTovanLogger::OStream {
 public:
  ONullStream();

 protected:
  ~ONullStream() override;

 private:
  std::unique_ptr<FileStream> file_;
};

// Text, in UTF-8; other bytes are made safe. "null" stands for a null pointer and an empty holder. A text may hold NUL
// characters where its type allows them.
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, const char* text);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, std::string_view text);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, char character);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, const plinth::CStringRef& text);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, const plinth::CURLRef& url);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, bool value);
// The time stamp's text and ": ".
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, const CTimeStamp& moment);
inline CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, std::nullptr_t) {
  return stream << static_cast<const char*>(nullptr);
}

// Numbers, as a standard stream writes them that nobody has changed (6 significant digits, no grouping); an address in
// hexadecimal. They never end a message.
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, short value);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, unsigned short value);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, int value);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, unsigned int value);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, long value);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, unsigned long value);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, long long value);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, unsigned long long value);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, float value);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, double value);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, long double value);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, const void* address);

// An element, mostly a mark, as a line of its own, without an XML declaration. A message that has begun is ended first
// and becomes a line before it. An empty holder writes nothing.
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, const plinth::CXMLService& element);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream, const plinth::CXMLServiceRef& element);

// endl ends the message and flushes the target; flush only flushes it. The standard's own two do the same here; its
// other manipulators of that form have no effect, and those that change how numbers look do not compile.
TOVAN_EXPORT CTovanLogger::OStream& endl(CTovanLogger::OStream& stream);
TOVAN_EXPORT CTovanLogger::OStream& flush(CTovanLogger::OStream& stream);
TOVAN_EXPORT CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream,
                                               std::ostream& (*manipulator)(std::ostream&));
inline CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream,
                                         CTovanLogger::OStream& (*manipulator)(CTovanLogger::OStream&)) {
  return manipulator(stream);
}
CTovanLogger::OStream& operator<<(CTovanLogger::OStream& stream,
                                  std::ios_base& (*manipulator)(std::ios_base&)) = delete;

}  // namespace tovan
