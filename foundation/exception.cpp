#include <plinth/exception.h>

namespace plinth {
namespace {

ExceptionType defaultType(ExceptionKind kind) noexcept {
  switch (kind) {
    case ExceptionKind::param:
      return kExceptionTypeParam;
    case ExceptionKind::nullPointer:
      return kExceptionTypeNullPointer;
    case ExceptionKind::file:
    case ExceptionKind::io:
      return kExceptionTypeSystemCall;
    case ExceptionKind::foundation:
      return kExceptionTypeFoundation;
    case ExceptionKind::generic:
    case ExceptionKind::unknown:
      break;
  }
  return kExceptionTypeUnknown;
}

}  // namespace

CException::CException(ExceptionType type) : CException(type, ExceptionKind::generic) {}

CException::CException(ExceptionType type, ExceptionKind kind)
    : type_(type), kind_(kind), message_(makeShared<CString>()) {}

CException::CException(ExceptionType type, const char* format, ...) : CException(type, ExceptionKind::generic) {
  va_list arguments;
  va_start(arguments, format);
  setMessage(format, arguments);
  va_end(arguments);
}

CException::CException(ExceptionType type, std::int32_t code) : CException(type, ExceptionKind::generic) {
  code_ = code;
}

CException::CException(ExceptionType type, std::int32_t code, const char* format, ...) : CException(type, code) {
  va_list arguments;
  va_start(arguments, format);
  setMessage(format, arguments);
  va_end(arguments);
}

CException::CException(ExceptionKind kind, const char* message) : CException(defaultType(kind), kind) {
  setMessage(CSTR(message));
}

CException::~CException() = default;

void CException::setMessage(const char* format, va_list arguments) { setMessage(CString::vsprintf(format, arguments)); }

void CException::setMessage(const CStringRef& message) { message_ = CString::nullToEmptyString(CSTR(message)); }

void CException::concatMessage(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const CStringRef addition = CString::vsprintf(format, arguments);
  va_end(arguments);
  CStringRef whole = CSTR(message_);
  whole->append(addition);
  message_ = whole;
}

CStringRef CException::getMessage() const { return CSTR(message_); }

const char* CException::what() const noexcept {
  try {
    return message_->getUTF8Ptr();
  } catch (...) {
    return "";
  }
}

void CException::Throw() const { throw CException(*this); }

#define PLINTH_EXCEPTION(Name, Kind)                                                             \
  Name::Name() : CException(defaultType(Kind), Kind) {}                                          \
  Name::Name(const char* format, ...) : CException(defaultType(Kind), Kind) {                    \
    va_list arguments;                                                                           \
    va_start(arguments, format);                                                                 \
    setMessage(format, arguments);                                                               \
    va_end(arguments);                                                                           \
  }                                                                                              \
  Name::Name(std::int32_t code, const char* format, ...) : CException(defaultType(Kind), Kind) { \
    setCode(code);                                                                               \
    va_list arguments;                                                                           \
    va_start(arguments, format);                                                                 \
    setMessage(format, arguments);                                                               \
    va_end(arguments);                                                                           \
  }                                                                                              \
  Name::~Name() = default;                                                                       \
  void Name::Throw() const { throw Name(*this); }

PLINTH_EXCEPTION(CParamException, ExceptionKind::param)
PLINTH_EXCEPTION(CNullPointerException, ExceptionKind::nullPointer)
PLINTH_EXCEPTION(CFileException, ExceptionKind::file)
PLINTH_EXCEPTION(CIOException, ExceptionKind::io)
PLINTH_EXCEPTION(CNSException, ExceptionKind::foundation)
PLINTH_EXCEPTION(CUnknownException, ExceptionKind::unknown)

#undef PLINTH_EXCEPTION

}  // namespace plinth
