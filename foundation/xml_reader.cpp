#include "foundation/xml_reader.h"

#include <plinth/xml_service.h>

#include <expat.h>

#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <random>
#include <type_traits>

namespace plinth {
namespace {

// What keeps hostile names from colliding in Expat's tables. One number for the process: Expat itself would ask the
// kernel for one per document, which takes longer than reading a record.
unsigned long hashSalt() {
  static const unsigned long salt = []() -> unsigned long {
    try {
      std::random_device device;
      return static_cast<unsigned long>(std::uint64_t{device()} << 32 | device());
    } catch (const std::exception&) {
      return 0;  // Expat then finds its own
    }
  }();
  return salt;
}

using Parser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)>;

// One reading; Expat calls back into it.
class Reading {
 public:
  explicit Reading(XMLReaderEvents* events) : parser_(XML_ParserCreate("UTF-8"), &XML_ParserFree), events_(events) {
    if (!parser_) throw std::bad_alloc();
    XML_SetHashSalt(parser_.get(), hashSalt());
    XML_SetUserData(parser_.get(), this);
    XML_SetElementHandler(parser_.get(), begin, end);
    if (events_ != nullptr) XML_SetCharacterDataHandler(parser_.get(), characters);
    XML_SetStartDoctypeDeclHandler(parser_.get(), documentType);
    XML_SetEntityDeclHandler(parser_.get(), entity);
    XML_SetSkippedEntityHandler(parser_.get(), skipped);
    // Nothing is ever parsed so, as no entity can be declared; but a reference to an undeclared parameter entity is
    // then an error, and does not make Expat drop undeclared entities behind it in silence.
    XML_SetParamEntityParsing(parser_.get(), XML_PARAM_ENTITY_PARSING_ALWAYS);
  }

  std::optional<XMLReadError> run(std::string_view utf8) {
    constexpr std::size_t kPiece = std::numeric_limits<int>::max() / 2;  // Expat's lengths are ints
    bool isLast = false;
    while (!isLast) {
      const std::string_view piece = utf8.substr(0, kPiece);
      utf8.remove_prefix(piece.size());
      isLast = utf8.empty();
      const XML_Status status = XML_Parse(parser_.get(), piece.data(), static_cast<int>(piece.size()), isLast);
      if (thrown_) std::rethrow_exception(thrown_);
      if (refusal_ || status != XML_STATUS_OK) return error();
    }
    return std::nullopt;
  }

 private:
  static Reading& self(void* data) { return *static_cast<Reading*>(data); }

  static void XMLCALL begin(void* data, const XML_Char* name, const XML_Char** attributes) {
    Reading& reading = self(data);
    if (++reading.depth_ > CXMLService::kDepthLimit) return reading.refuse("elements are nested too deep");
    reading.report([&](XMLReaderEvents& events) { events.elementBegins(name, attributes); });
  }
  static void XMLCALL end(void* data, const XML_Char*) {
    Reading& reading = self(data);
    --reading.depth_;
    reading.report([](XMLReaderEvents& events) { events.elementEnds(); });
  }
  static void XMLCALL characters(void* data, const XML_Char* text, int length) {
    self(data).report([&](XMLReaderEvents& events) { events.text({text, static_cast<std::size_t>(length)}); });
  }
  // Without the external part Expat could not tell an undeclared entity from a declared one and would drop it.
  static void XMLCALL documentType(void* data, const XML_Char*, const XML_Char* systemId, const XML_Char*, int) {
    if (systemId != nullptr) self(data).refuse("external document types are not accepted");
  }
  static void XMLCALL entity(void* data, const XML_Char*, int, const XML_Char*, int, const XML_Char*, const XML_Char*,
                             const XML_Char*, const XML_Char*) {
    self(data).refuse("entity declarations are not accepted");
  }
  static void XMLCALL skipped(void* data, const XML_Char*, int) { self(data).refuse("undefined entity"); }

  // Handlers of the same token still run after the parser is stopped; they must not report any more.
  void refuse(const char* reason) {
    if (refusal_ != nullptr) return;
    refusal_ = reason;
    notePlace();
    XML_StopParser(parser_.get(), XML_FALSE);
  }

  template <class Call>
  void report(Call call) noexcept {
    if (events_ == nullptr || refusal_ != nullptr || thrown_) return;
    try {
      call(*events_);
    } catch (...) {
      // Not through Expat's frames.
      thrown_ = std::current_exception();
      XML_StopParser(parser_.get(), XML_FALSE);
    }
  }

  XMLReadError error() const {
    if (refusal_ != nullptr) return {line_, column_, refusal_};
    const XML_Error code = XML_GetErrorCode(parser_.get());
    if (code == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
    return {XML_GetCurrentLineNumber(parser_.get()), XML_GetCurrentColumnNumber(parser_.get()) + 1,
            XML_ErrorString(code)};
  }

  void notePlace() {
    line_ = XML_GetCurrentLineNumber(parser_.get());
    column_ = XML_GetCurrentColumnNumber(parser_.get()) + 1;
  }

  Parser parser_;
  XMLReaderEvents* events_;
  int depth_ = 0;
  const char* refusal_ = nullptr;
  unsigned long long line_ = 0;
  unsigned long long column_ = 0;
  std::exception_ptr thrown_;
};

}  // namespace

std::optional<XMLReadError> readXML(std::string_view utf8, XMLReaderEvents* events) {
  return Reading(events).run(utf8);
}

}  // namespace plinth
