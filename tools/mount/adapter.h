// adapter.h: what both programs do: translate, find the host's tool, run it.
#pragma once

#include "tools/mount/translation.h"

namespace host_mount {

struct Adapter {
  const char* name;
  const char* usage;
  const char* hostToolVariable;
  Arguments (*translate)(const Arguments& given);
};

// The exit code of the program. Failures of the adapter itself are said on standard error.
int runAdapter(const Adapter& adapter, const Arguments& given);

}  // namespace host_mount
