// log_mark.h: marks, the elements of the process log that say that something happened, began or ended.
//
//   <mrk tms="354290709.250" tmt="03/24/2012 14:05:09.250" pid="4711" kind="begin" what="import" req-id="7" msg="..."/>
//
// "kind" is "begin" or "end" and absent in a plain mark; "what", "req-id" and "msg" are absent when they are empty.
// Marks are elements: they are written into a stream like any other, and one that was read from a log is wrapped to be
// looked at.
//
// Threads: a mark is used by one thread at a time; a scope marker by the thread that made it.
#pragma once

#include <plinth/xml_service.h>
#include <tovan/logger.h>

namespace tovan {

class TOVAN_EXPORT CTovanLogger::CMark : public plinth::CXMLService {
 public:
  // A new mark of this moment and this process. The message comes before the request's id here, which is deliberate;
  // in the element it comes after it. Empty holders count as empty texts. A kind other than begin and end makes a plain
  // mark.
  CMark(MarkKind kind, const plinth::CStringRef& what, const plinth::CStringRef& message,
        const plinth::CStringRef& requestID);
  // A copy of an element that was read. Throws plinth::CNullPointerException "Error: service is null!".
  explicit CMark(const plinth::CXMLServiceRef& element);
  CMark(const CMark&) = default;
  CMark& operator=(const CMark&) = default;
  ~CMark() override;

  // Without the attribute "kind" a plain mark; unknown when it is neither "begin" nor "end".
  MarkKind markKind() const;
  // Empty strings when the attribute is absent, never empty holders.
  plinth::CStringRef what() const;
  plinth::CStringRef requestID() const;
  plinth::CStringRef message() const;
};

// Marks a scope: the begin with its message when it is made, the end, without one, when it goes.
//
//   const CTovanLogger::CScopeMarker scope(CSTR("import"), CTovanGlobalLogger::log(3), CSTR("3 files"));
class TOVAN_EXPORT CTovanLogger::CScopeMarker {
 public:
  // Writes the begin, and retains the stream, which so outlives its logger if need be (and discards the end then).
  // Throws what writing an element throws.
  CScopeMarker(const plinth::CStringRef& what, OStream& stream, const plinth::CStringRef& message);
  CScopeMarker(const CScopeMarker&) = delete;
  CScopeMarker& operator=(const CScopeMarker&) = delete;
  // Writes the end. A stream that has failed does not get it, and nothing is thrown.
  ~CScopeMarker();

 private:
  plinth::CStringRef what_;
  OStreamRef stream_;
  plinth::CStringRef message_;
};

}  // namespace tovan
