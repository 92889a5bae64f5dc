#include <plinth/plinth.h>
#include <tovan/file_util.h>
#include <tovan/message_digest.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/progress_bar.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

using tovan::CMessageDigest;

const std::map<std::string, CMessageDigest::Kind>& algorithms() {
  static const std::map<std::string, CMessageDigest::Kind> all = {
      {"md2", CMessageDigest::kMD2},   {"md5", CMessageDigest::kMD5},   {"sha0", CMessageDigest::kSHA0},
      {"sha1", CMessageDigest::kSHA1}, {"mdc2", CMessageDigest::kMDC2}, {"ripemd160", CMessageDigest::kRIPEMD160},
  };
  return all;
}

struct Arguments {
  std::vector<std::string> files;
  std::string algorithm = "sha1";
  bool json = false;
  CMessageDigest::Kind kind() const { return algorithms().at(algorithm); }
};

// Before any file is read, so that it is said once.
void checkAlgorithm(const Arguments& arguments) {
  try {
    CMessageDigest(plinth::CSTR(""), arguments.kind());
  } catch (const plinth::CNullPointerException& failure) {
    throw CommandError(kFailed,
                       "the libcrypto of this host has no " + arguments.algorithm + ": " + std::string(failure.what()));
  }
}

// A path is bytes, which need not be text.
plinth::CURLRef urlOf(const std::string& path) {
  const plinth::CSharedCFRef<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()), false));
  if (!url) throw plinth::CFileException("\"%s\" is no path", path.c_str());
  return plinth::makeShared<plinth::CURL>(url.get());
}

std::string digestOf(const std::string& path, CMessageDigest::Kind kind) {
  ProgressBar bar(path, fileSize(path.c_str()));
  return CMessageDigest(urlOf(path), kind, [&bar](std::uint64_t bytes) { bar.show(bytes); }).hexText()->str();
}

// The line that md5sum and its kin print and check: a name that would break it is written with escapes, and a backslash
// in front of the digest says so.
std::string checkLine(const std::string& digest, const std::string& path) {
  if (::isatty(STDOUT_FILENO) != 0) return digest + "  " + onOneLine(path) + "\n";
  std::string name;
  for (const char character : path) {
    name += character == '\\'   ? "\\\\"
            : character == '\n' ? "\\n"
            : character == '\r' ? "\\r"
                                : std::string(1, character);
  }
  return (name == path ? "" : "\\") + digest + "  " + name + "\n";
}

void digest(const Arguments& arguments) {
  checkAlgorithm(arguments);
  std::size_t failures = 0;
  Json files = Json::array();
  for (const std::string& path : arguments.files) {
    try {
      const std::string text = digestOf(path, arguments.kind());
      files.push_back({{"path", path}, {"digest", text}});
      if (!arguments.json) print(checkLine(text, path));
    } catch (const plinth::CException& failure) {
      ++failures;
      files.push_back({{"path", path}, {"digest", nullptr}, {"error", failure.what()}});
      if (!arguments.json) message(failure.what());
    }
  }
  if (arguments.json) printJson({{"algorithm", arguments.algorithm}, {"files", files}});
  if (failures > 0) {
    throw CommandError(kFailed, std::to_string(failures) + " of " + std::to_string(arguments.files.size()) +
                                    " files could not be read");
  }
}

}  // namespace

void addDigestCommand(CLI::App& app) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App& command = *app.add_subcommand("digest", "The message digests of files, a line each");
  std::vector<std::string> names;
  for (const auto& [name, kind] : algorithms()) names.push_back(name);
  command.add_option("FILE", arguments->files, "The files")->required();
  command.add_option("-a,--algorithm", arguments->algorithm, "The algorithm")
      ->transform(CLI::IsMember(names, CLI::ignore_case))
      ->capture_default_str();
  command.add_flag("--json", arguments->json, "One JSON document");
  command.callback([arguments] { digest(*arguments); });
}

}  // namespace tovanctl
