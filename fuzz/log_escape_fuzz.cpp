// log_escape_fuzz.cpp: messages of any bytes. Expat, driven in the plainest way, is the judge of what parses inside the
// attribute: what does stays as it is, and the quick decision says the same wherever it decides. What comes out of the
// escaping always parses, and so does the record.
#include <expat.h>
#include <tovan/logger.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "logging/message_text.h"

namespace {

bool parses(const std::string& document) {
  const XML_Parser parser = XML_ParserCreate("UTF-8");
  const bool isTaken = XML_Parse(parser, document.data(), static_cast<int>(document.size()), XML_TRUE) == XML_STATUS_OK;
  XML_ParserFree(parser);
  return isTaken;
}

bool parsesInAttribute(std::string_view text) { return parses("<log msg=\"" + std::string(text) + "\"/>"); }

void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const bool isTaken = parsesInAttribute(text);
  const tovan::AttributeFit fit = tovan::attributeFit(text);
  if (fit != tovan::AttributeFit::unclear) require((fit == tovan::AttributeFit::fits) == isTaken);
  const std::string escaped = tovan::CTovanLogger::escapedString(text);
  require((escaped == text) == isTaken);
  require(parsesInAttribute(escaped));
  require(parsesInAttribute(tovan::attributeCopy(text)));
  std::string storage;
  const std::string inRecord(tovan::recordText(text, storage));
  require(parses(R"(<log tms="1.000" tmt="01/01/2001 00:00:01.000" pid="1" lvl="1" msg=")" + inRecord + "\"/>"));
  return 0;
}
