#include "tests/support/scratch_home.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace test {
namespace {

std::string& home() {
  static std::string path;
  return path;
}

class ScratchHomeEnvironment : public ::testing::Environment {
 public:
  ScratchHomeEnvironment() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tovan-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    home() = std::filesystem::canonical(pattern).string();
    makeFolders(home() + "/tmp");
    ::setenv("HOME", home().c_str(), 1);
    ::setenv("TMPDIR", (home() + "/tmp").c_str(), 1);
    ::setenv("TZ", "UTC", 1);
  }
  void TearDown() override {
    std::error_code ignored;
    std::filesystem::remove_all(home(), ignored);
  }
};

}  // namespace

const std::string& scratchHome() { return home(); }

std::string scratchFolder(const std::string& name) {
  static int count = 0;
  const std::string path = home() + "/" + name + "-" + std::to_string(++count);
  makeFolders(path);
  return path;
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << "no file at " << path;
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  file.close();
  EXPECT_TRUE(file.good()) << "cannot write " << path;
}

bool exists(const std::string& path) { return std::filesystem::exists(std::filesystem::symlink_status(path)); }

void makeFolders(const std::string& path) { std::filesystem::create_directories(path); }

}  // namespace test

int main(int argc, char** argv) {
  ::testing::InitGoogleMock(&argc, argv);
  ::testing::AddGlobalTestEnvironment(new test::ScratchHomeEnvironment);
  return RUN_ALL_TESTS();
}
