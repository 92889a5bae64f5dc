#include "tools/mount/adapter.h"

#include <cstdio>

#include "tools/mount/host_tool.h"

namespace host_mount {

int runAdapter(const Adapter& adapter, const Arguments& given) {
  try {
    const Arguments arguments = adapter.translate(given);
    return runHostTool(findHostTool(adapter.name, adapter.hostToolVariable), arguments);
  } catch (const Refusal& refusal) {
    std::fprintf(stderr, "%s: %s\nusage: %s\n", adapter.name, refusal.what(), adapter.usage);
    return kRefused;
  } catch (const HostToolFailure& failure) {
    std::fprintf(stderr, "%s: %s\n", adapter.name, failure.what());
    return failure.exitCode;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s: %s\n", adapter.name, failure.what());
    return kRefused;
  }
}

}  // namespace host_mount
