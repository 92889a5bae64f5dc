#include "storage/exports_lines.h"

#include <CoreFoundation/CFString.h>

#include <algorithm>
#include <cstddef>

#include "logging/utf8.h"

namespace tovan {

using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;

namespace {

constexpr UniChar kByte = 0xDC00;
constexpr std::size_t kSharedLength = sizeof "/shared" - 1;

bool isByte(UniChar unit) { return unit >= kByte + 0x80 && unit <= kByte + 0xFF; }

CStringRef textOf(const std::vector<UniChar>& units) {
  const plinth::CSharedCFRef<CFStringRef> text(
      CFStringCreateWithCharacters(kCFAllocatorDefault, units.data(), static_cast<CFIndex>(units.size())));
  return CSTR(text.get());
}

void appendUnits(std::vector<UniChar>& units, const CString& text) {
  const auto length = static_cast<std::size_t>(text.getLength());
  units.resize(units.size() + length);
  CFStringGetCharacters(text.getStringRef(), CFRangeMake(0, text.getLength()), units.data() + units.size() - length);
}

// A line that is not UTF-8 as a whole.
CStringRef lineWithBytes(std::string_view bytes) {
  std::vector<UniChar> units;
  while (!bytes.empty()) {
    std::size_t well = 0;  // how much of it is UTF-8
    std::size_t length = 1;
    while (well < bytes.size() && length > 0) {
      length = static_cast<unsigned char>(bytes[well]) < 0x80 ? 1 : utf8SequenceLength(bytes.substr(well));
      well += length;
    }
    if (well > 0) appendUnits(units, *CSTR(std::string(bytes.substr(0, well))));
    if (well < bytes.size()) units.push_back(static_cast<UniChar>(kByte + static_cast<unsigned char>(bytes[well++])));
    bytes.remove_prefix(well);
  }
  return textOf(units);
}

CStringRef lineOf(std::string_view bytes) {
  const plinth::CSharedCFRef<CFStringRef> line(
      CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
                              static_cast<CFIndex>(bytes.size()), kCFStringEncodingUTF8, false));
  return line ? CSTR(line.get()) : lineWithBytes(bytes);
}

// The string's own bytes up to a U+0000, when all of it is ASCII.
std::string_view asciiBytes(const CString& text) {
  const char* const bytes = CFStringGetCStringPtr(text.getStringRef(), kCFStringEncodingASCII);
  return bytes != nullptr ? std::string_view(bytes) : std::string_view();
}

void appendBytes(std::string& text, const CString& line) {
  const std::string_view ascii = asciiBytes(line);
  if (static_cast<CFIndex>(ascii.size()) == line.getLength()) {  // as nearly all lines are; none with U+0000 in it
    text += ascii;
    return;
  }
  if (CFStringGetCStringPtr(line.getStringRef(), kCFStringEncodingUTF8) != nullptr) {  // no half of a pair
    text += line.str();
    return;
  }
  std::vector<UniChar> units;
  appendUnits(units, line);
  for (auto next = units.cbegin(); next != units.cend();) {
    const auto stop = std::find_if(next, units.cend(), isByte);
    // The second half of a pair has its first half before it.
    const bool isPair = stop != units.cend() && stop != next && *(stop - 1) >= 0xD800 && *(stop - 1) <= 0xDBFF;
    const auto end = isPair ? stop + 1 : stop;
    if (end != next) text += textOf(std::vector<UniChar>(next, end))->str();
    next = end;
    if (!isPair && next != units.cend()) text += static_cast<char>(*next++ - kByte);
  }
}

bool areHexDigits(std::string_view text) {
  return text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

}  // namespace

ExportsLines exportsLines(std::string_view text) {
  ExportsLines lines;
  lines.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
  const CStringRef empty = plinth::makeShared<CString>();  // one for all: a file may be nothing but line feeds
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.push_back(end == 0 ? empty : lineOf(text.substr(0, end)));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

std::string exportsText(const ExportsLines& lines) {
  std::string text;
  for (const CStringRef& line : lines) {
    appendBytes(text, *line);
    text += '\n';
  }
  return text;
}

bool isCutOff(std::string_view text) { return !text.empty() && text.back() != '\n'; }

bool goesOn(const CString& line) {
  CFIndex backslashes = 0;
  while (line[line.getLength() - 1 - backslashes] == '\\') ++backslashes;
  return backslashes % 2 != 0;
}

std::size_t endOfEntry(const ExportsLines& lines, std::size_t index) {
  while (index < lines.size() && goesOn(*lines[index])) ++index;
  return std::min(index + 1, lines.size());
}

void removeEntry(ExportsLines& lines, std::size_t index) {
  const auto at = [&lines](std::size_t place) { return lines.begin() + static_cast<std::ptrdiff_t>(place); };
  lines.erase(at(index), at(endOfEntry(lines, index)));
}

ExportsMatch exportsMatch(const CString& line, const CStringRef& escapedPath) {
  if (!line.beginsWith(escapedPath)) return ExportsMatch::none;
  const CFIndex end = escapedPath->getLength();
  if (line.getLength() == end) return ExportsMatch::exact;
  if (line[end] == ' ' || line[end] == '\t') return ExportsMatch::options;
  const bool isShared = line.getLength() - end == static_cast<CFIndex>(kSharedLength);
  return isShared ? ExportsMatch::shared : ExportsMatch::none;
}

bool namesStorage(const CString& line) {
  constexpr std::string_view kShared = "/shared";
  constexpr std::size_t kDigits = 8;
  constexpr std::size_t kBefore = 2 + 2 * kDigits;  // "/", digits, "-", digits
  const std::string text = line.str();
  if (text.find("/.mvsubexp") != std::string::npos) return true;
  for (std::size_t at = text.find(kShared); at != std::string::npos; at = text.find(kShared, at + 1)) {
    if (at < kBefore) continue;
    const std::string_view name = std::string_view(text).substr(at - kBefore, kBefore);
    const bool isBriefID = name[0] == '/' && areHexDigits(name.substr(1, kDigits)) && name[1 + kDigits] == '-' &&
                           areHexDigits(name.substr(2 + kDigits, kDigits));
    if (isBriefID) return true;
  }
  return false;
}

std::string reasonAgainstListing(const std::string& path) {
  if (path.empty() || path.front() != '/') return "it is not absolute";
  if (path == "/") return "it is the root folder";
  if (path.find('\n') != std::string::npos) return "it holds a line feed";
  const std::string bounded = path + "/";
  for (const char* const part : {"//", "/./", "/../"}) {
    if (bounded.find(part) != std::string::npos) return "it holds an empty, \".\" or \"..\" component";
  }
  return {};
}

}  // namespace tovan
