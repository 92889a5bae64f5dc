// The executable of the sample service bundles: prints the library's version and the arguments that the service was
// started with, one a line, and ends.
#include <tovan/version.h>

#include <cstdio>

int main(int argc, char** argv) {
  std::printf("%s", TovanCoreVersionString);
  for (int index = 0; index < argc; ++index) std::printf("%d: %s\n", index, argv[index]);
  return std::fflush(stdout) == 0 ? 0 : 1;
}
