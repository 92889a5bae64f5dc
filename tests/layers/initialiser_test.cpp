// Loading the library runs no code of its own: no object file of a layer holds an initialiser.
#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/scratch_home.h"

namespace {

std::vector<std::string> sectionNames(const std::string& elf) {
  Elf64_Ehdr header;
  std::memcpy(&header, elf.data(), sizeof header);
  std::vector<Elf64_Shdr> sections(header.e_shnum);
  std::memcpy(sections.data(), elf.data() + header.e_shoff, sections.size() * sizeof(Elf64_Shdr));
  const char* const names = elf.data() + sections.at(header.e_shstrndx).sh_offset;
  std::vector<std::string> result;
  for (const Elf64_Shdr& section : sections) result.emplace_back(names + section.sh_name);
  return result;
}

bool startsAnything(const std::string& section) {
  for (const char* const kind : {".init_array", ".preinit_array", ".ctors", ".rela.init_array"}) {
    if (section.rfind(kind, 0) == 0) return true;
  }
  return false;
}

std::vector<std::string> layerObjects() {
  std::vector<std::string> objects;
  const std::filesystem::path files = TOVAN_BUILD_DIR "/CMakeFiles";
  for (const char* const layer : {"tovan_corefoundation", "tovan_system", "tovan_foundation", "tovan_plist",
                                  "tovan_notify", "tovan_logging", "tovan_launch", "tovan_control", "tovan_storage"}) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(files / (std::string(layer) + ".dir"))) {
      if (entry.path().extension() == ".o") objects.push_back(entry.path().string());
    }
  }
  return objects;
}

TEST(InitialiserTest, NoObjectOfTheLibraryRunsCodeAtLoadTime) {
#if defined(TOVAN_SANITIZED)
  GTEST_SKIP() << "sanitizers add initialisers of their own to every object";
#endif
  const std::vector<std::string> objects = layerObjects();
  ASSERT_GT(objects.size(), 30U) << "the layers' object files were not found";
  for (const std::string& object : objects) {
    for (const std::string& section : sectionNames(test::readFile(object))) {
      EXPECT_FALSE(startsAnything(section)) << object << " has " << section;
    }
  }
}

// The check can fail: this very file has an initialiser, on purpose.
const std::string kInitialisedAtLoadTime = std::string(64, 'x');

TEST(InitialiserTest, TheCheckSeesAnInitialiser) {
#if defined(TOVAN_SANITIZED)
  GTEST_SKIP() << "sanitizers add initialisers of their own to every object";
#endif
  ASSERT_EQ(kInitialisedAtLoadTime.size(), 64U);
  std::string own;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(TOVAN_BUILD_DIR "/tests")) {
    if (entry.path().filename() == "initialiser_test.cpp.o") own = entry.path().string();
  }
  ASSERT_FALSE(own.empty());
  bool seen = false;
  for (const std::string& section : sectionNames(test::readFile(own))) seen = seen || startsAnything(section);
  EXPECT_TRUE(seen);
}

}  // namespace
