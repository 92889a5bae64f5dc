#include "tools/tovanctl/log_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "tools/tovanctl/log_moment.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

constexpr std::uint32_t kUsualLevel = 3;

int hexadecimal(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

// The length of the UTF-8 character that begins there; 0 when none does.
std::size_t characterAt(const std::string& text, std::size_t at) {
  const auto byte = [&text](std::size_t index) { return static_cast<unsigned char>(text[index]); };
  const unsigned char first = byte(at);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || at + length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(at + i) & 0xC0U) != 0x80U) return 0;
  }
  const unsigned char second = byte(at + 1);
  const bool isOverlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
  const bool isBeyond = (first == 0xED && second >= 0xA0) || (first == 0xF4 && second >= 0x90);
  return isOverlong || isBeyond ? 0 : length;
}

bool isUtf8(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = characterAt(text, at);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

// Control characters become "?", those of Latin-1 (U+0080 to U+009F) as well; tabs and line breaks stay.
void appendHarmless(std::string& out, const std::string& text, std::size_t indentation) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    const bool isHigh = byte == 0xC2 && at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) < 0xA0;
    if (byte == '\n') {
      out += '\n';
      out.append(indentation, ' ');
    } else if ((byte < 0x20 && byte != '\t') || byte == 0x7F || isHigh) {
      out += '?';
      at += isHigh ? 1 : 0;
    } else {
      out += text[at];
    }
  }
}

Style styleOf(const LogRecord& record) {
  if (record.kind == LogRecordKind::mark) return Style::good;
  if (record.level < kUsualLevel) return record.level < kUsualLevel - 1 ? Style::bad : Style::warning;
  return Style::plain;
}

// "begin sync: the services [request 7]".
std::string markText(const LogRecord& record) {
  std::string text = record.markKind.empty() ? "mark" : record.markKind;
  if (!record.what.empty()) text += " " + record.what;
  if (!record.message.empty()) text += ": " + record.message;
  if (!record.requestID.empty()) text += " [request " + record.requestID + "]";
  return text;
}

std::string wholeText(const LogRecord& record, const LogPlace* place) {
  std::string text = record.kind == LogRecordKind::mark ? markText(record) : record.message;
  for (const auto& [name, value] : record.others) text += fmt::format(" [{}={}]", name, value);
  if (place != nullptr && place->duration) text += " (" + durationText(*place->duration) + ")";
  if (place != nullptr && place->endsLostSession) text += " (the session before it has no end)";
  return text;
}

const char* kindName(LogRecordKind kind) {
  if (kind == LogRecordKind::message) return "message";
  return kind == LogRecordKind::mark ? "mark" : "element";
}

Json textOrNull(const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); }

double rounded(double seconds) { return std::round(seconds * 1000) / 1000; }

}  // namespace

std::string withoutPercentEscapes(const std::string& text) {
  if (text.find('%') == std::string::npos) return text;
  std::string out;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool isEscape =
        text[at] == '%' && at + 2 < text.size() && hexadecimal(text[at + 1]) >= 0 && hexadecimal(text[at + 2]) >= 0;
    if (isEscape) {
      out += static_cast<char>(hexadecimal(text[at + 1]) * 16 + hexadecimal(text[at + 2]));
      at += 2;
    } else {
      out += text[at];
    }
  }
  return isUtf8(out) ? out : text;
}

std::string harmless(const std::string& text) {
  std::string out;
  appendHarmless(out, text, 0);
  for (char& byte : out) byte = byte == '\n' || byte == '\t' ? '?' : byte;
  return out;
}

std::string logRecordText(const LogRecord& record, const LogPlace* place, bool colour) {
  const std::string time = record.time ? logMomentText(*record.time) : std::string(23, '-');
  const std::string pid = record.pid ? std::to_string(*record.pid) : "-";
  const std::string level = record.kind == LogRecordKind::message ? std::to_string(record.level) : "-";
  const std::size_t depth = place != nullptr ? place->depth : 0;
  std::string line = fmt::format("{}  {:>7}  {:>2}  {:{}}", time, pid, level, "", 2 * depth);
  std::string text;
  appendHarmless(text, wholeText(record, place), line.size());
  line += styled(text, styleOf(record), colour);
  line += '\n';
  return line;
}

Json logRecordJson(const LogRecord& record, const LogPlace* place) {
  Json object = Json::object();
  object["kind"] = kindName(record.kind);
  object["time"] = record.time ? Json(logMomentUniversal(*record.time)) : Json(nullptr);
  object["absoluteTime"] = record.time ? Json(rounded(*record.time)) : Json(nullptr);
  object["pid"] = record.pid ? Json(*record.pid) : Json(nullptr);
  if (record.kind == LogRecordKind::message) object["level"] = record.level;
  if (record.kind == LogRecordKind::mark) {
    object["mark"] = record.markKind.empty() ? "mark" : record.markKind;
    object["what"] = textOrNull(record.what);
    object["requestID"] = textOrNull(record.requestID);
    object["message"] = textOrNull(record.message);
  } else {
    object[record.kind == LogRecordKind::message ? "message" : "xml"] = record.message;
  }
  if (!record.others.empty()) {
    Json& others = object["otherAttributes"] = Json::object();
    for (const auto& [name, value] : record.others) others[name] = value;
  }
  if (place != nullptr) {
    object["depth"] = place->depth;
    object["duration"] = place->duration ? Json(rounded(*place->duration)) : Json(nullptr);
  }
  return object;
}

}  // namespace tovanctl
