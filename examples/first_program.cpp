// A first program against the library: lists the installed services with the command line that instance 0 of each would
// be started with, and switches one off when its name is given.
#include <plinth/plinth.h>
#include <tovan/tovan.h>

#include <cstdio>
#include <vector>

namespace {

const char* orDash(CFStringRef string, plinth::CStringRef& keep) {
  keep = plinth::CSTR(string);
  return keep ? keep->getUTF8Ptr() : "-";
}

void showServices() {
  const tovan::CServiceCacheFile services;  // reads the file; one that is not there reads as empty
  std::vector<tovan::CServiceCacheEntry> entries;
  services.get(entries, 0);  // 0: all of them
  std::printf("%zu services are installed\n", entries.size());
  for (const tovan::CServiceCacheEntry& entry : entries) {
    plinth::CStringRef name;
    std::printf("%s, %s\n ", orDash(entry.name(), name), entry.enabled ? "enabled" : "disabled");
    for (const plinth::CStringRef& argument :
         tovan::CServiceUtil::buildServiceArgs(entry, tovan::CServiceConfigEntry(), 0)) {
      std::printf(" %s", argument->getUTF8Ptr());
    }
    std::printf("\n");
  }
}

bool switchOff(const char* name) {
  tovan::CServiceCacheFile services;
  tovan::CServiceCacheEntry entry;
  if (!services.get(plinth::CSTR(name)->getStringRef(), entry)) return false;
  entry.enabled = false;
  services.put(entry);
  services.flush();  // locks, reads again, replaces this section, writes, lets go
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc > 1 && !switchOff(argv[1])) {
      std::fprintf(stderr, "no service is called %s\n", argv[1]);
      return 1;
    }
    showServices();
    return 0;
  } catch (const plinth::CException& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
