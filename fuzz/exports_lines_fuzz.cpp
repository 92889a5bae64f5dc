// exports_lines_fuzz.cpp: arbitrary bytes as the library's exports file. What is taken is what the library writes, and
// whatever it is makes one line for the server; a file that is cut off makes no folder that the whole does not have.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "tools/exports/library_lines.h"
#include "tools/exports/linux_exports.h"
#include "tools/exports/path_text.h"

namespace {

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "exports_lines_fuzz: %s\n", what);
  std::abort();
}

// As the library escapes it.
std::string shellWord(const std::string& path) {
  std::string word;
  for (const char character : path) {
    if (character == '\n') {
      word += "'\n'";
      continue;
    }
    if (!exports::isPlainInShell(character)) word += '\\';
    word += character;
  }
  return word;
}

bool names(const exports::LibraryLines& lines, const std::string& path) {
  return std::any_of(lines.folders.begin(), lines.folders.end(), [&](const auto& one) { return one.path == path; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const exports::LibraryLines lines = exports::readLibraryLines(text);
  const auto lineCount = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  for (const auto& problem : lines.problems) {
    require(problem.line >= 1 && problem.line <= lineCount && !problem.text.empty(), "a problem without a place");
  }
  for (const auto& folder : lines.folders) {
    require(folder.line >= 1 && folder.line <= lineCount, "a folder without a place");
    require(exports::reasonAgainstPath(folder.path).empty(), "a path that is never exported");
    const auto again = exports::readLibraryLines(shellWord(folder.path) + "\n");
    require(again.folders.size() == 1 && again.folders[0].path == folder.path, "the path does not come back");
    const bool hasForm = exports::reasonAgainstLinuxPath(folder.path).empty();
    const std::string line = exports::linuxExports({folder.path}, {{"h", {"ro"}}});
    require(std::count(line.begin(), line.end(), '\n') == (hasForm ? 2 : 1), "a path makes more than its line");
    require(std::count(line.begin(), line.end(), '(') == (hasForm ? 1 : 0), "a path makes more than its export");
    const std::string twice = exports::bytesOfOctalText(exports::bytesOfOctalText(exports::octalText(folder.path)));
    require(!hasForm || twice == folder.path, "exportfs reads another path");
    require(exports::bytesOfOctalText(exports::octalText(folder.path)) == folder.path, "the octal escapes");
  }
  const exports::LibraryLines part = exports::readLibraryLines(text.substr(0, size / 2));
  for (const auto& folder : part.folders) require(names(lines, folder.path), "a part names another folder");
  return 0;
}
