#include "tools/tovanctl/output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/tovanctl/exit_code.h"

namespace tovanctl {

void printJson(const Json& members) {
  Json document = Json::object();
  document["schema"] = kSchema;
  for (const auto& [name, value] : members.items()) document[name] = value;
  print(document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

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
