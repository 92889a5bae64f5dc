// exports_file.h: ExportsFile, the NFS server's exports file as one piece of text.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace tovan {

// What is wrong with the file; the text is the reason alone.
class ExportsFileFailure : public std::runtime_error {
 public:
  explicit ExportsFileFailure(int error);
  ExportsFileFailure(int error, const std::string& reason) : std::runtime_error(reason), error_(error) {}
  int error() const noexcept { return error_; }

 private:
  int error_;
};

class ExportsFile {
 public:
  explicit ExportsFile(std::string path) : path_(std::move(path)) {}

  // The folder that the file lies in, links to the file followed.
  std::string folder() const;
  // All of it; nothing for a missing file. Throws ExportsFileFailure.
  std::string read() const;
  // Puts the text in the file's place in one step. When `expected` is given and the file holds something else by then,
  // it is left alone, and the answer is false. Throws ExportsFileFailure; the file is as it was.
  bool replace(std::string_view text, const std::string* expected) const;

 private:
  std::string path_;
};

}  // namespace tovan
