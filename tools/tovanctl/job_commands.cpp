#include <plinth/plinth.h>
#include <tovan/launchctl_plist.h>
#include <tovan/service_cache_file.h>

#include <memory>
#include <string>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/services.h"

namespace tovanctl {
namespace {

using plinth::CSharedCFRef;
using tovan::CLaunchCtlPList;

std::string xml(CFPropertyListRef list) {
  CFErrorRef failure = nullptr;
  const CSharedCFRef<CFDataRef> data(
      CFPropertyListCreateData(nullptr, list, kCFPropertyListXMLFormat_v1_0, 0, &failure));
  const CSharedCFRef<CFErrorRef> reason(failure);
  if (!data) {
    const CSharedCFRef<CFStringRef> why(CFErrorCopyDescription(reason.get()));
    throw CommandError(kFailed, "the job description cannot be written: " + text(why.get()));
  }
  return {reinterpret_cast<const char*>(CFDataGetBytePtr(data.get())),
          static_cast<std::size_t>(CFDataGetLength(data.get()))};
}

void show(const std::string& name, unsigned int instance, bool asJson) {
  const tovan::CServiceCacheFile cache;
  const tovan::CServiceCacheEntry entry = serviceOfName(cache, name);
  if (entry.instances < 0 || instance >= static_cast<unsigned int>(entry.instances)) {
    throw CommandError(kUnknownName, "\"" + name + "\" has " + std::to_string(entry.instances) +
                                         " instances, counted from 0; there is no instance " +
                                         std::to_string(instance));
  }
  const plinth::CStringRef path = CLaunchCtlPList::expandedPListFilePathForService(entry, instance);
  const CSharedCFRef<CFDictionaryRef> job = CLaunchCtlPList::plistDataForService(entry, instance);
  if (asJson) {
    return printJson({{"service", name}, {"instance", instance}, {"path", path->str()}, {"job", json(job.get())}});
  }
  print(xml(job.get()));
}

struct Arguments {
  std::string name;
  unsigned int instance = 0;
  bool json = false;
};

}  // namespace

void addJobCommands(CLI::App& app) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App& job = *app.add_subcommand("job", "Look at the job descriptions of launch-agent services");
  job.require_subcommand(1);
  CLI::App* const showCommand =
      job.add_subcommand("show", "The job description that an instance would get; writes nothing");
  showCommand->add_option("NAME", arguments->name, "The service's name")->required();
  showCommand->add_option("INSTANCE", arguments->instance, "The instance, counted from 0");
  showCommand->add_flag("--json", arguments->json, "One JSON document");
  showCommand->callback([arguments] { show(arguments->name, arguments->instance, arguments->json); });
}

}  // namespace tovanctl
