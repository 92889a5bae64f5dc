// xml_service_fuzz.cpp: reads elements from arbitrary bytes. Expat, driven in the plainest way, is the judge of what is
// well-formed; beyond it exactly four things are refused. What is read must be written so that it reads back the same.
#include <expat.h>
#include <plinth/exception.h>
#include <plinth/xml_service.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

using namespace plinth;

struct Verdict {
  bool isWellFormed;
  bool isRefused = false;  // for what the reader refuses beyond Expat
  int depth = 0;
};

Verdict judge(const std::string& xml) {
  Verdict verdict{};
  XML_Parser parser = XML_ParserCreate("UTF-8");
  XML_SetUserData(parser, &verdict);
  XML_SetElementHandler(
      parser,
      [](void* data, const XML_Char*, const XML_Char**) {
        auto& self = *static_cast<Verdict*>(data);
        if (++self.depth > CXMLService::kDepthLimit) self.isRefused = true;
      },
      [](void* data, const XML_Char*) { --static_cast<Verdict*>(data)->depth; });
  XML_SetStartDoctypeDeclHandler(parser,
                                 [](void* data, const XML_Char*, const XML_Char* systemId, const XML_Char*, int) {
                                   if (systemId != nullptr) static_cast<Verdict*>(data)->isRefused = true;
                                 });
  XML_SetEntityDeclHandler(parser,
                           [](void* data, const XML_Char*, int, const XML_Char*, int, const XML_Char*, const XML_Char*,
                              const XML_Char*, const XML_Char*) { static_cast<Verdict*>(data)->isRefused = true; });
  verdict.isWellFormed = XML_Parse(parser, xml.data(), static_cast<int>(xml.size()), XML_TRUE) == XML_STATUS_OK;
  XML_ParserFree(parser);
  return verdict;
}

void require(bool condition) {
  if (!condition) std::abort();
}

bool isSame(const CXMLService& left, const CXMLService& right) {
  if (left.copyXMLNodeName() != right.copyXMLNodeName() || left.copyText() != right.copyText() ||
      left.getAttributes().size() != right.getAttributes().size() || left.getChildCount() != right.getChildCount()) {
    return false;
  }
  for (std::size_t i = 0; i < left.getAttributes().size(); ++i) {
    if (left.getAttributes()[i]->getName() != right.getAttributes()[i]->getName() ||
        left.getAttributes()[i]->getValue() != right.getAttributes()[i]->getValue()) {
      return false;
    }
  }
  for (std::size_t i = 0; i < left.getChildCount(); ++i) {
    if (!isSame(*left.getChildAtIndex(i), *right.getChildAtIndex(i))) return false;
  }
  return true;
}

void tryAsAttribute(const CStringRef& value) {
  CXMLService mark(CSTR("<mrk/>"));
  mark.addAttributes({makeShared<CXMLAttributePair>(CSTR("msg"), value)});
  const CXMLService again(mark.copyToCString());
  require(again.getAttributes().size() == 1 && again.getChildCount() == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CStringRef xml = CSTR(std::string(reinterpret_cast<const char*>(data), size));
  if (xml.isNull()) return 0;  // not UTF-8
  tryAsAttribute(xml);
  const std::string text = xml->str();
  const Verdict verdict = judge(text);
  const bool isTaken = CXMLService::isWellFormed(xml);
  // A reference to an undeclared parameter entity is refused as well; Expat alone then stops checking entities.
  const bool mayDiffer = text.find("<!DOCTYPE") != std::string::npos && text.find('%') != std::string::npos;
  if (!mayDiffer || isTaken) require(isTaken == (verdict.isWellFormed && !verdict.isRefused));
  try {
    const CXMLService element(xml);
    require(isTaken);
    require(isSame(element, CXMLService(element)));
    require(isSame(element, CXMLService(element.copyToCString())));
    require(isSame(element, CXMLService(element.copyToCString(true))));
  } catch (const CParamException&) {
    require(!isTaken);
  }
  return 0;
}
