#include "platform/corefoundation/bundle_images.h"

#include <link.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

namespace cf {
namespace {

struct Image {
  std::string name;        // as the loader knows it: absolute, relative or empty
  std::uintptr_t address;  // of its first segment
};

int takeGeneration(dl_phdr_info* info, std::size_t, void* context) {
  *static_cast<ImageGeneration*>(context) = {info->dlpi_adds, info->dlpi_subs};
  return 1;
}

int takeImage(dl_phdr_info* info, std::size_t, void* context) {
  auto& images = *static_cast<std::vector<Image>*>(context);
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    if (info->dlpi_phdr[i].p_type != PT_LOAD) continue;
    images.push_back({info->dlpi_name == nullptr ? "" : info->dlpi_name, info->dlpi_addr + info->dlpi_phdr[i].p_vaddr});
    break;
  }
  return 0;
}

std::string realPath(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
  return resolved ? resolved.get() : std::string();
}

// The file mapped at an address, from /proc/self/maps, whose lines are "begin-end mode offset device inode path". A
// library that was loaded by a relative name is found this way, wherever the current directory has moved since.
std::string mappedFile(const std::string& maps, std::uintptr_t address) {
  std::istringstream lines(maps);
  for (std::string line; std::getline(lines, line);) {
    char* end = nullptr;
    const std::uintptr_t first = std::strtoull(line.c_str(), &end, 16);
    if (*end != '-') continue;
    const std::uintptr_t last = std::strtoull(end + 1, nullptr, 16);
    if (address < first || address >= last) continue;
    const std::size_t path = line.find('/');
    return path == std::string::npos ? std::string() : line.substr(path);
  }
  return {};
}

std::string readMaps() {
  std::ifstream file("/proc/self/maps");
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

}  // namespace

ImageGeneration imageGeneration() noexcept {
  ImageGeneration generation;
  ::dl_iterate_phdr(takeGeneration, &generation);
  return generation;
}

std::string programPath() { return realPath("/proc/self/exe"); }

std::vector<std::string> imagePaths() {
  std::vector<Image> images;
  ::dl_iterate_phdr(takeImage, &images);
  std::vector<std::string> paths;
  std::string maps;
  for (const Image& image : images) {
    std::string path;
    if (image.name.empty()) {
      path = programPath();
    } else if (image.name.front() == '/') {
      path = realPath(image.name);
    } else {
      if (maps.empty()) maps = readMaps();
      path = realPath(mappedFile(maps, image.address));
    }
    if (!path.empty()) paths.push_back(std::move(path));
  }
  return paths;
}

}  // namespace cf
