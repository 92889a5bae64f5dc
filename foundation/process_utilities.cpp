#include <plinth/process_utilities.h>

#include "platform/system/process_table.h"

#include <optional>
#include <string>

namespace plinth {

bool ProcessUtilities::FindProcessWithName(const CStringRef& name, pid_t& pid, uid_t user) {
  return name && platform::findProcess(name->str(), user, pid);
}

CStringRef ProcessUtilities::FindProcessNameForProcess(pid_t pid) {
  const std::optional<std::string> name = platform::processName(pid);
  if (!name) return nullptr;
  const CStringRef text = CSTR(*name);
  // A name that is not UTF-8 is still a name.
  return text ? text : CSTR(name->c_str(), kCFStringEncodingISOLatin1);
}

}  // namespace plinth
