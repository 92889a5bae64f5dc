// exception.h: the exception family. Everything that the library throws is a CException or one of its subclasses.
//
// An exception carries a type (where it comes from; the number is the "code" of the library's messages), a kind (which
// subclass it belongs to), an optional integer code (mostly an errno) and a message. The objects are values: copying
// them shares the message text.
#pragma once

#include <plinth/string.h>

#include <cstdarg>
#include <cstdint>
#include <exception>

namespace plinth {

// Where a failure comes from. The numbers are part of the interface.
enum ExceptionType : std::int32_t {
  kExceptionTypeNone = 0,
  kExceptionTypeParam = 1,        // a bad argument or a failed precondition
  kExceptionTypeNullPointer = 2,  // something that must be there is not
  kExceptionTypeStream = 3,       // a stream in a failed state
  kExceptionTypeSystemCall = 4,   // a failed system call
  kExceptionTypeFoundation = 5,   // a failure that a platform framework raised
  kExceptionTypeUnknown = 255,    // a parse or serialise failure, and everything else
};

// Which subclass an exception is, so that it can be told without a cast.
enum class ExceptionKind : std::int32_t { generic = 0, param, nullPointer, file, io, foundation, unknown };

class PLINTH_EXPORT CException : public std::exception {
 public:
  explicit CException(ExceptionType type);
  // The format is printf's and also knows %@ (a CoreFoundation object).
  CException(ExceptionType type, const char* format, ...);
  CException(ExceptionType type, std::int32_t code);
  CException(ExceptionType type, std::int32_t code, const char* format, ...);
  // The message is taken as it is; the type is the one that the kind's subclass has by default.
  explicit CException(ExceptionKind kind, const char* message = nullptr);
  CException(const CException&) = default;
  CException& operator=(const CException&) = default;
  ~CException() override;

  // Appends printf-formatted text (%@ included) to the message. Copies made before keep theirs.
  void concatMessage(const char* format, ...);
  // A string of the caller's own, empty when there is no message; never an empty holder.
  CStringRef getMessage() const;
  ExceptionType getType() const noexcept { return type_; }
  ExceptionKind getKind() const noexcept { return kind_; }
  // The integer code given at construction, mostly an errno; 0 when there was none.
  std::int32_t getCode() const noexcept { return code_; }
  void setCode(std::int32_t code) noexcept { code_ = code; }
  // The message in UTF-8, valid until it changes or the exception goes.
  const char* what() const noexcept override;

  // Throws a copy of this object as its own dynamic type.
  [[noreturn]] virtual void Throw() const;

 protected:
  CException(ExceptionType type, ExceptionKind kind);
  void setMessage(const char* format, va_list arguments);
  // Shares the text; an empty holder makes the message empty.
  void setMessage(const CStringRef& message);

 private:
  ExceptionType type_;
  ExceptionKind kind_;
  std::int32_t code_ = 0;
  CStringRef message_;
};

// The subclasses differ in kind and in their default type only. Each offers: no argument; a printf-style message; an
// integer code (an errno) with a printf-style message.
// NOLINTBEGIN(bugprone-macro-parentheses): a class name takes none
#define PLINTH_EXCEPTION(Name)                        \
  class PLINTH_EXPORT Name : public CException {      \
   public:                                            \
    Name();                                           \
    explicit Name(const char* format, ...);           \
    Name(std::int32_t code, const char* format, ...); \
    Name(const Name&) = default;                      \
    Name& operator=(const Name&) = default;           \
    ~Name() override;                                 \
    [[noreturn]] void Throw() const override;         \
  }
// NOLINTEND(bugprone-macro-parentheses)

PLINTH_EXCEPTION(CParamException);        // a bad argument or a failed precondition
PLINTH_EXCEPTION(CNullPointerException);  // something that must be there is not
PLINTH_EXCEPTION(CFileException);         // a file could not be used
PLINTH_EXCEPTION(CIOException);           // input or output failed
PLINTH_EXCEPTION(CNSException);           // a platform framework's exception, caught and rewrapped
PLINTH_EXCEPTION(CUnknownException);      // an exception of no known type, recorded

#undef PLINTH_EXCEPTION

}  // namespace plinth
