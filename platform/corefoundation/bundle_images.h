// bundle_images.h: the program and the libraries that this process has loaded.
#pragma once

#include <string>
#include <vector>

namespace cf {

// Changes whenever a library is loaded or unloaded; cheap to ask for.
struct ImageGeneration {
  unsigned long long added = 0;
  unsigned long long removed = 0;
  bool operator==(const ImageGeneration&) const = default;
};
ImageGeneration imageGeneration() noexcept;

// The real path of the running program; empty when /proc cannot tell or the file is gone.
std::string programPath();

// The real paths of the program and of every loaded library whose file can still be reached. Takes the loader's lock:
// call it without holding one that a library's constructor might wait for.
std::vector<std::string> imagePaths();

}  // namespace cf
