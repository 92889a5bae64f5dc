#include "tools/exports/library_lines.h"

#include <set>

#include "tools/exports/path_text.h"

namespace exports {
namespace {

class Damage {
 public:
  explicit Damage(std::string words) : words_(std::move(words)) {}
  const std::string& words() const { return words_; }

 private:
  std::string words_;
};

std::string characterText(char character) { return "\"" + octalText(std::string_view(&character, 1)) + "\""; }

// A walk over the file, one shell word at a time.
class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  bool atEnd() const { return at_ == text_.size(); }
  std::size_t line() const { return line_; }

  // Passes over an empty line or a comment.
  bool skipNothing() {
    const std::size_t start = text_.find_first_not_of(" \t", at_);
    if (start != std::string_view::npos && text_[start] != '\n' && text_[start] != '#') return false;
    skipLine();
    return true;
  }

  void skipLine() {
    const std::size_t end = text_.find('\n', at_);
    at_ = end == std::string_view::npos ? text_.size() : end + 1;
    ++line_;
  }

  // Ends behind the line feed of the word's line; in the midst of the damaged line after a Damage.
  std::string word() {
    std::string path;
    for (; at_ < text_.size(); ++at_) {
      const char character = text_[at_];
      if (character == '\n') {
        skipLine();
        return path;
      }
      if (character == '\\') {
        path += escaped();
      } else if (character == '\'') {
        path += quotedLineFeed();
      } else {
        path += plain(character);
      }
    }
    throw Damage("the line has no end, so that its path may have been cut off");
  }

 private:
  char escaped() {
    if (at_ + 1 == text_.size() || text_[at_ + 1] == '\n') throw Damage("a backslash ends the line");
    const char character = text_[++at_];
    if (character == '\0') throw Damage("it holds a NUL character");
    if (isPlainInShell(character)) throw Damage("a backslash stands before " + characterText(character));
    return character;
  }

  char quotedLineFeed() {
    if (text_.substr(at_, 3) != "'\n'") throw Damage("a single quote holds something else than one line feed");
    at_ += 2;
    ++line_;
    return '\n';
  }

  static char plain(char character) {
    if (character == '\0') throw Damage("it holds a NUL character");
    if (character == ' ' || character == '\t') {
      throw Damage("something follows the path; hosts and options are the configuration's");
    }
    if (!isPlainInShell(character)) throw Damage(characterText(character) + " stands there without a backslash");
    return character;
  }

  std::string_view text_;
  std::size_t at_ = 0;
  std::size_t line_ = 1;
};

}  // namespace

LibraryLines readLibraryLines(std::string_view text) {
  LibraryLines lines;
  std::set<std::string> known;
  Reader reader(text);
  while (!reader.atEnd()) {
    if (reader.skipNothing()) continue;
    const std::size_t first = reader.line();
    std::string word;
    try {
      word = reader.word();
    } catch (const Damage& damage) {
      lines.problems.push_back({reader.line(), damage.words()});
      reader.skipLine();
      continue;
    }
    const std::string reason = reasonAgainstPath(word);
    if (!reason.empty()) {
      lines.problems.push_back({first, reason});
      continue;
    }
    std::string path = withoutIdleSlashes(word);
    if (known.insert(path).second) lines.folders.push_back({std::move(path), first});
  }
  return lines;
}

}  // namespace exports
