// exports_lines.h: the text of the exports file as lines, without loss, and what the lines say.
#pragma once

#include <plinth/string.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tovan {

using ExportsLines = std::vector<plinth::CStringRef>;

// One line for each line feed, and one for what follows the last. A byte that is not UTF-8 becomes the code unit U+DC00
// plus the byte, a half of a surrogate pair, which no text holds. No line is an empty holder.
ExportsLines exportsLines(std::string_view text);
// The reverse, each line with a line feed. Half a pair of another kind becomes "?".
std::string exportsText(const ExportsLines& lines);
// Whether the text ends in the middle of a line.
bool isCutOff(std::string_view text);

// Whether the line goes on in the next one: it ends in a backslash that no other one escapes.
bool goesOn(const plinth::CString& line);
// The index behind the entry that begins at an index.
std::size_t endOfEntry(const ExportsLines& lines, std::size_t index);
void removeEntry(ExportsLines& lines, std::size_t index);

// How a line names an escaped path.
enum class ExportsMatch {
  none,
  shared,   // followed by as many characters as "/shared" has
  options,  // followed by a blank or tab
  exact
};
ExportsMatch exportsMatch(const plinth::CString& line, const plinth::CStringRef& escapedPath);

// Whether the line holds the names of a storage folder or of a sub-export.
bool namesStorage(const plinth::CString& line);

// Why a path can't have a line of its own from which exactly this path comes back; empty when it can.
std::string reasonAgainstListing(const std::string& path);

}  // namespace tovan
