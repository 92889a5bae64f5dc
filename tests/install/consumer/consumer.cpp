// A program outside the tree: the version, and where the library found its framework.
#include <plinth/plinth.h>
#include <tovan/tovan.h>

#include <cstdio>

int main() {
  std::printf("%s", TovanCoreVersionString);
  const plinth::CSharedCFRef<CFURLRef> framework(getMervaneFrameworkURL());
  if (!framework) return 1;
  std::printf("%s\n", plinth::makeShared<plinth::CURL>(framework.get())->getFileSystemPath()->getUTF8Ptr());
  tovan::CServiceCacheFile cache;
  tovan::CServiceCacheEntry entry;
  return cache.getAtIndex(0, entry) ? 1 : 0;
}
