// publisher_lines_fuzz.cpp: arbitrary bytes as the exports file that the publisher edits. Every byte comes back; a
// folder's line, when it is added, is found, and when it is taken off the rest is as before; and removing the own lines
// leaves the others in their order.
#include <plinth/string.h>
#include <tovan/nfs_shared_storage_publisher.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "storage/exports_lines.h"

namespace {

using plinth::CSTR;

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "publisher_lines_fuzz: %s\n", what);
  std::abort();
}

void tryPath(const tovan::ExportsLines& lines, const std::string& text, const std::string& bytes) {
  const plinth::CStringRef path = CSTR(bytes);
  if (path.isNull() || bytes.find('\0') != std::string::npos || !tovan::reasonAgainstListing(bytes).empty()) return;
  const auto publisher = plinth::makeShared<tovan::CNFSSharedStoragePublisher>();
  const plinth::CStringRef escaped = publisher->escapedFilePath(path);
  const CFIndex before = publisher->findExportEntry(lines, path);
  require(before < static_cast<CFIndex>(lines.size()), "an index beyond the lines");
  const bool isThere = before >= 0 && lines[static_cast<std::size_t>(before)] == escaped;
  if (isThere || (!lines.empty() && tovan::goesOn(*lines.back()))) return;
  tovan::ExportsLines more = lines;
  more.push_back(escaped);
  require(publisher->findExportEntry(more, path) == static_cast<CFIndex>(lines.size()), "the line is not found");
  const std::string longer = tovan::exportsText(more);
  require(longer == text + escaped->str() + "\n", "more than a line is added");
  require(tovan::exportsLines(longer).size() == more.size(), "the line is not one line");
  tovan::removeEntry(more, lines.size());
  require(tovan::exportsText(more) == text, "more than the line is taken off");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const tovan::ExportsLines lines = tovan::exportsLines(text);
  const std::string whole = tovan::isCutOff(text) ? text + "\n" : text;
  require(tovan::exportsText(lines) == whole, "a byte is lost");
  require(static_cast<std::size_t>(std::count(whole.begin(), whole.end(), '\n')) == lines.size(), "a line is lost");
  tovan::ExportsLines rest = lines;
  for (std::size_t index = 0; index < rest.size();) {
    const std::size_t end = tovan::endOfEntry(rest, index);
    require(end > index && end <= rest.size(), "an entry without an end");
    if (tovan::namesStorage(*rest[index])) {
      tovan::removeEntry(rest, index);
    } else {
      index = end;
    }
  }
  require(rest.size() <= lines.size(), "lines are made");
  tryPath(lines, whole, "/srv/folder");
  tryPath(lines, whole, text.substr(0, text.find('\n')));
  tryPath(lines, whole, "/" + text.substr(size / 2));
  return 0;
}
