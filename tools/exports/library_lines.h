// library_lines.h: the library's own exports file as it is read here: one line for each folder, its absolute path as
// one shell word and nothing else (plinth::CString::shellEscapedFilename writes it). A line feed in a path stands
// between single quotes, so that such a line goes on in the next one.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace exports {

struct LibraryFolder {
  std::string path;      // bytes as the file system has them; absolute, no empty, "." or ".." component
  std::size_t line = 0;  // from 1
};

struct LineProblem {
  std::size_t line = 0;
  std::string text;
};

struct LibraryLines {
  std::vector<LibraryFolder> folders;  // each path once, in the order of the file
  std::vector<LineProblem> problems;   // lines that are skipped, in the order of the file
};

// Reads strictly: what the library would not have written is a problem, never a guess. A last line without its line
// feed is one too: what a writer that was interrupted leaves may be the path of a folder above the one that was meant.
// Empty lines and those that begin with # are passed over.
LibraryLines readLibraryLines(std::string_view text);

}  // namespace exports
