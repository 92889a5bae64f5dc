#include <tovan/log_mark.h>

#include <tovan/log_stream.h>
#include <tovan/time_stamp.h>

#include "logging/log_format.h"
#include "platform/system/process_id.h"

#include <exception>
#include <string>
#include <vector>

namespace tovan {
namespace {

using plinth::CSTR;
using plinth::CStringRef;

// The names of a mark's attributes, in their order.
constexpr const char* kMoment = "tms";
constexpr const char* kMomentText = "tmt";
constexpr const char* kProcess = "pid";
constexpr const char* kKind = "kind";
constexpr const char* kWhat = "what";
constexpr const char* kRequestID = "req-id";
constexpr const char* kMessage = "msg";

CStringRef textOf(std::string_view text) { return CSTR(std::string(text)); }

CStringRef kindText(CTovanLogger::MarkKind kind) {
  if (kind == CTovanLogger::kMarkKindBegin) return textOf(kBegin);
  return kind == CTovanLogger::kMarkKindEnd ? textOf(kEnd) : CStringRef();
}

CStringRef valueOf(const plinth::CXMLService& element, const char* name) {
  return element.getAttributeValueAsString(CSTR(name), plinth::makeShared<plinth::CString>());
}

}  // namespace

CTovanLogger::CMark::CMark(MarkKind kind, const CStringRef& what, const CStringRef& message,
                           const CStringRef& requestID)
    : CXMLService(textOf("<" + std::string(kMarkName) + "/>")) {
  std::vector<plinth::CXMLAttributePairRef> attributes;
  const auto add = [&attributes](const char* name, const CStringRef& value) {
    if (value.isNull() || value->isEmpty()) return;
    attributes.push_back(plinth::makeShared<plinth::CXMLAttributePair>(CSTR(name), value));
  };
  const CTimeStamp moment;
  add(kMoment, CSTR(secondsText(moment)));
  add(kMomentText, CSTR(moment.getText()));
  add(kProcess, plinth::CString::fromInt(platform::processId()));
  add(kKind, kindText(kind));
  add(kWhat, what);
  add(kRequestID, requestID);
  add(kMessage, message);
  addAttributes(attributes);
}

CTovanLogger::CMark::CMark(const plinth::CXMLServiceRef& element) : CXMLService(element) {}

CTovanLogger::CMark::~CMark() = default;

CTovanLogger::MarkKind CTovanLogger::CMark::markKind() const {
  const CStringRef kind = getAttributeValueAsString(CSTR(kKind));
  if (kind.isNull()) return kMarkKindMark;
  if (kind == kindText(kMarkKindBegin)) return kMarkKindBegin;
  return kind == kindText(kMarkKindEnd) ? kMarkKindEnd : kMarkKindUnknown;
}

CStringRef CTovanLogger::CMark::what() const { return valueOf(*this, kWhat); }
CStringRef CTovanLogger::CMark::requestID() const { return valueOf(*this, kRequestID); }
CStringRef CTovanLogger::CMark::message() const { return valueOf(*this, kMessage); }

bool CTovanLogger::isMark(const plinth::CXMLService& element) { return element.copyXMLNodeName() == textOf(kMarkName); }

CTovanLogger::CScopeMarker::CScopeMarker(const CStringRef& what, OStream& stream, const CStringRef& message)
    : what_(CSTR(what)), stream_(OStreamRef::retaining(&stream)), message_(CSTR(message)) {
  if (stream.kind() != kStreamKindNull) stream << CMark(kMarkKindBegin, what_, message_, nullptr);
}

CTovanLogger::CScopeMarker::~CScopeMarker() {
  if (stream_->kind() == kStreamKindNull) return;
  try {
    *stream_ << CMark(kMarkKindEnd, what_, nullptr, nullptr);
  } catch (const std::exception&) {
    // A stream that has failed gets no end, as announced.
  }
}

}  // namespace tovan
