#include "tools/tovanctl/log_element.h"

#include <expat.h>

#include <array>
#include <charconv>
#include <cmath>
#include <optional>
#include <vector>

namespace tovanctl {
namespace {

using Kind = LogElement::Kind;
using Attribute = std::pair<std::string, std::string>;

constexpr std::string_view kBlank = " \t\r\n";
// The years 1 to 9999.
constexpr double kEarliest = -63113904000.0;
constexpr double kLatest = 252423993600.0;

LogElement damaged(std::string reason) { return {Kind::damaged, 0, std::move(reason)}; }

// Whether the text is the name, and then something that ends a name.
bool begins(std::string_view text, std::string_view name) {
  if (text.substr(0, name.size()) != name) return false;
  return text.size() == name.size() || (kBlank.find(text[name.size()]) != std::string_view::npos) ||
         text[name.size()] == '/' || text[name.size()] == '>' || text[name.size()] == '?';
}

// A frame that ends with a certain text.
LogElement frame(std::string_view text, std::string_view end) {
  const std::size_t at = text.find(end);
  if (at == std::string_view::npos) return {Kind::incomplete, 0, {}};
  return {Kind::frame, at + end.size(), {}};
}

template <typename Number>
std::optional<Number> number(const std::string& text) {
  Number value{};
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stopped != end) return std::nullopt;
  return value;
}

// Takes one attribute in; what is wrong with it, or null.
const char* take(LogRecord& record, Attribute& attribute) {
  auto& [name, value] = attribute;
  if (name == "tms") {
    record.time = number<double>(value);
    const bool isMoment = record.time && *record.time >= kEarliest && *record.time < kLatest;
    return isMoment ? nullptr : "its tms is no moment";
  }
  if (name == "pid") {
    record.pid = number<std::uint32_t>(value);
    return record.pid ? nullptr : "its pid is no number";
  }
  const bool isMark = record.kind == LogRecordKind::mark;
  if (name == "lvl" && !isMark) {
    const auto level = number<std::uint32_t>(value);
    record.level = level.value_or(record.level);
    return level ? nullptr : "its lvl is no number";
  }
  if (name == "msg") {
    record.message = std::move(value);
  } else if (isMark && name == "kind") {
    record.markKind = std::move(value);
  } else if (isMark && name == "what") {
    record.what = std::move(value);
  } else if (isMark && name == "req-id") {
    record.requestID = std::move(value);
  } else if (name != "tmt") {  // which says the same as tms
    record.others.push_back(std::move(attribute));
  }
  return nullptr;
}

std::string_view withoutTrailingBlank(std::string_view text) {
  return text.substr(0, text.find_last_not_of(kBlank) + 1);
}

// A parser makes a blank of a line break or a tab inside an attribute, but not of a reference to one.
std::string withReferences(std::string_view text) {
  std::string out;
  for (const char byte : text) {
    if (byte == '\n') {
      out += "&#10;";
    } else if (byte == '\t') {
      out += "&#9;";
    } else if (byte == '\r') {
      out += "&#13;";
    } else {
      out += byte;
    }
  }
  return out;
}

}  // namespace

struct LogElementParser::State {
  XML_Parser parser = nullptr;
  bool ended = false;
  std::string name;  // of the outermost element, once its tag is whole
  std::vector<Attribute> attributes;
  std::size_t tagLength = 0;
  int depth = 0;
  XML_Error error = XML_ERROR_NONE;

  static void start(void* data, const XML_Char* name, const XML_Char** attributes) {
    auto& self = *static_cast<State*>(data);
    if (self.depth++ > 0) return;
    self.name = name;
    self.tagLength =
        static_cast<std::size_t>(XML_GetCurrentByteIndex(self.parser) + XML_GetCurrentByteCount(self.parser));
    for (; *attributes != nullptr; attributes += 2) self.attributes.emplace_back(attributes[0], attributes[1]);
  }
  static void end(void* data, const XML_Char*) {
    auto& self = *static_cast<State*>(data);
    self.ended = --self.depth == 0;
  }
};

LogElementParser::LogElementParser()
    : state_(std::make_unique<State>()), parser_(XML_ParserCreate("UTF-8"), XML_ParserFree) {}

LogElementParser::~LogElementParser() = default;

bool LogElementParser::beginsKnown(std::string_view text) {
  static constexpr std::array<std::string_view, 5> kNames = {"<log", "<mrk", "<logs", "</logs", "<?xml"};
  for (const std::string_view name : kNames) {
    if (begins(text, name)) return true;
  }
  return false;
}

bool LogElementParser::run(std::string_view text) {
  *state_ = State();
  state_->parser = parser_.get();
  XML_ParserReset(parser_.get(), "UTF-8");
  XML_SetHashSalt(parser_.get(), 1);  // or each element would ask the system for random numbers
  XML_SetUserData(parser_.get(), state_.get());
  XML_SetElementHandler(parser_.get(), State::start, State::end);
  if (XML_Parse(parser_.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) == XML_STATUS_OK) return true;
  state_->error = XML_GetErrorCode(parser_.get());
  return false;
}

LogElement LogElementParser::parse(std::string_view text, LogRecord& record) {
  if (begins(text, "<?xml")) return frame(text, "?>");
  if (begins(text, "</logs")) return frame(text, ">");
  if (begins(text, "<logs")) {
    run(text);
    if (state_->tagLength > 0) return {Kind::frame, state_->tagLength, {}};
    if (state_->error == XML_ERROR_UNCLOSED_TOKEN) return {Kind::incomplete, 0, {}};
    return damaged(std::string("the root element is damaged: ") + XML_ErrorString(state_->error));
  }
  if (!beginsKnown(text)) return damaged("it is neither a message nor a mark");
  LogElement element = parseTag(text, record);
  if (element.kind != Kind::record) return element;
  const std::string_view whole = text.substr(0, element.length);
  if (whole.find_first_of("\n\t\r") == std::string_view::npos) return element;
  LogRecord exact;
  if (parseTag(withReferences(whole), exact).kind == Kind::record) record = std::move(exact);
  return element;
}

LogElement LogElementParser::parseTag(std::string_view text, LogRecord& record) {
  text = withoutTrailingBlank(text);
  const bool isWhole = run(text);
  if (!isWhole && !(state_->ended && state_->error == XML_ERROR_JUNK_AFTER_DOC_ELEMENT)) {
    const bool mayGoOn = state_->error == XML_ERROR_UNCLOSED_TOKEN || state_->error == XML_ERROR_PARTIAL_CHAR;
    if (mayGoOn && state_->name.empty()) return {Kind::incomplete, 0, {}};
    if (!state_->name.empty()) return damaged("it is not closed");
    return damaged(XML_ErrorString(state_->error));
  }
  record = LogRecord();
  record.kind = state_->name == "mrk" ? LogRecordKind::mark : LogRecordKind::message;
  for (Attribute& attribute : state_->attributes) {
    if (const char* const wrong = take(record, attribute)) return damaged(wrong);
  }
  if (!record.time) return damaged("it has no tms");
  if (!record.pid) return damaged("it has no pid");
  return {Kind::record, state_->tagLength, {}};
}

LogElement LogElementParser::parseOther(std::string_view text, LogRecord& record) {
  text = withoutTrailingBlank(text);
  // No document type, so that nothing expands.
  if (text.size() < 2 || text[1] == '!' || text[1] == '?') return damaged("it is neither a message nor a mark");
  if (!run(text)) return damaged(XML_ErrorString(state_->error));
  record = LogRecord();
  record.kind = LogRecordKind::element;
  for (Attribute& attribute : state_->attributes) {
    const bool isCommon = attribute.first == "tms" || attribute.first == "pid";
    if (isCommon && take(record, attribute) != nullptr) return damaged("its " + attribute.first + " is no number");
  }
  record.message = text;
  return {Kind::record, text.size(), {}};
}

}  // namespace tovanctl
