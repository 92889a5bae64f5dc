#include "tools/tovanctl/output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/tovanctl/exit_code.h"

namespace tovanctl {

namespace {

std::string document(const Json& members, int indentation) {
  Json document = Json::object();
  document["schema"] = kSchema;
  for (const auto& [name, value] : members.items()) document[name] = value;
  return document.dump(indentation, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

void printJson(const Json& members) { print(document(members, 2)); }

void printJsonLine(const Json& members) { print(document(members, -1)); }

void print(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

void message(const std::string& text) {
  const std::string line = "tovanctl: " + text + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

void finishOutput() {
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    throw CommandError(kFailed, std::string("cannot write the result: ") + std::strerror(errno));
  }
}

}  // namespace tovanctl
