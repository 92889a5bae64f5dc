// Bundles of loaded libraries, found by identifier through symbolic links.
#include "tests/corefoundation/bundle_support.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using test::bundleAt;
using test::entry;
using test::executable;
using test::Held;
using test::infoPlist;
using test::pathOfOwned;
using test::put;
using test::string;
using test::textOf;
using test::value;

struct CloseLibrary {
  void operator()(void* library) const { ::dlclose(library); }
};
using Library = std::unique_ptr<void, CloseLibrary>;

Library load(const std::string& path) {
  Library library(::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL));
  EXPECT_TRUE(library) << ::dlerror();
  return library;
}

// A small library of the system, to be copied.
std::string someLibrary() {
  const Library library = load("libutil.so.1");
  link_map* map = nullptr;
  if (!library || ::dlinfo(library.get(), RTLD_DI_LINKMAP, static_cast<void*>(&map)) != 0) return {};
  return map->l_name;
}

CFBundleRef find(const std::string& identifier) { return CFBundleGetBundleWithIdentifier(string(identifier).get()); }

std::string bundlePath(CFBundleRef bundle) {
  return bundle == nullptr ? "(none)" : pathOfOwned(CFBundleCopyBundleURL(bundle));
}

// A library, in a bundle with that identifier.
void putLibrary(const std::string& path, const std::string& info, const std::string& identifier) {
  test::makeFolders(std::filesystem::path(path).parent_path().string());
  std::filesystem::copy_file(someLibrary(), path);
  put(info, infoPlist(entry("CFBundleIdentifier", identifier)));
}

void putFramework(const std::string& root, const std::string& name, const std::string& identifier) {
  const std::string version = root + "/Versions/A";
  putLibrary(version + "/" + name, version + "/Resources/Info.plist", identifier);
  std::filesystem::create_symlink("A", root + "/Versions/Current");
  std::filesystem::create_symlink("Versions/Current/" + name, root + "/" + name);
  std::filesystem::create_symlink("Versions/Current/Resources", root + "/Resources");
}

TEST(LoadedBundleTest, OfThisLibraryIsFourComponentsBelowItsFramework) {
  const std::string lib = std::string(TOVAN_BUILD_DIR) + "/lib";
  const Library library = load(lib + "/libTovanCore.so");
  ASSERT_TRUE(library);
  CFBundleRef const bundle = find("com.brant.mervane.TovanCore");
  ASSERT_NE(bundle, nullptr);
  const std::filesystem::path path = bundlePath(bundle);
  const std::filesystem::path frameworks = std::filesystem::canonical(lib + "/tovan/Frameworks");
  EXPECT_EQ(path, frameworks / "Mervane.framework/Versions/A/Frameworks/TovanCore.framework");
  EXPECT_EQ(std::filesystem::canonical(path).parent_path().parent_path().parent_path().parent_path(),
            frameworks / "Mervane.framework");
  EXPECT_EQ(executable(bundle), path / "Versions/Current/TovanCore");
}

TEST(LoadedBundleTest, IsFoundThroughLinksFromEveryLayout) {
  const std::string folder = test::scratchFolder("loaded");
  struct Example {
    std::string bundle;
    std::string library;
    std::string info;
  };
  const std::vector<Example> examples = {{"c.bundle", "Contents/Linux/c", "Contents/Info.plist"},
                                         {"n", "Contents/Linux/n", "Contents/Info.plist"},
                                         {"d.plugin", "Contents/Frameworks/deep/er/d", "Contents/Info.plist"},
                                         {"f.bundle", "f", "Info.plist"},
                                         {"r.bundle", "Resources/r", "Resources/Info.plist"},
                                         {"p q", "p q", "Info.plist"},
                                         {"u.framework", "u", "Resources/Info.plist"}};
  std::vector<Library> libraries;
  for (std::size_t i = 0; i < examples.size(); ++i) {
    const auto& [bundle, library, info] = examples[i];
    const std::string root = folder + "/real/" + bundle;
    const std::string identifier = "com.test." + std::to_string(i);
    putLibrary(root + "/" + library, root + "/" + info, identifier);
    const std::string link = folder + "/link" + std::to_string(i) + ".so";
    std::filesystem::create_symlink(root + "/" + library, link);
    EXPECT_EQ(find(identifier), nullptr) << "not loaded yet";
    libraries.push_back(load(link));
    EXPECT_EQ(bundlePath(find(identifier)), root) << library;
  }
}

TEST(LoadedBundleTest, OfANestedFrameworkIsTheInnermost) {
  const std::string outer = test::scratchFolder("nested") + "/Outer.framework";
  putFramework(outer, "Outer", "com.test.outer");
  const std::string inner = outer + "/Versions/A/Frameworks/Inner.framework";
  putFramework(inner, "Inner", "com.test.inner");
  const Library library = load(inner + "/Inner");
  EXPECT_EQ(bundlePath(find("com.test.inner")), inner);
  EXPECT_EQ(find("com.test.outer"), nullptr) << "only its nested framework is loaded";
  const Library outerLibrary = load(outer + "/Versions/Current/Outer");
  EXPECT_EQ(bundlePath(find("com.test.outer")), outer);
}

TEST(LoadedBundleTest, LoadedByARelativeNameIsFoundFromAnyDirectory) {
  const std::string root = test::scratchFolder("relative") + "/x.bundle";
  putLibrary(root + "/x", root + "/Info.plist", "com.test.relative");
  char before[4096];
  ASSERT_NE(::getcwd(before, sizeof before), nullptr);
  ASSERT_EQ(::chdir(root.c_str()), 0);
  const Library library = load("./x");
  ASSERT_EQ(::chdir(before), 0);
  EXPECT_EQ(bundlePath(find("com.test.relative")), root);
}

TEST(LoadedBundleTest, WinsOverOneThatWasOnlyMade) {
  const std::string folder = test::scratchFolder("two");
  put(folder + "/copy.bundle/Info.plist", infoPlist(entry("CFBundleIdentifier", "com.test.two")));
  const auto made = bundleAt(folder + "/copy.bundle");
  EXPECT_EQ(find("com.test.two"), made.get());
  putLibrary(folder + "/loaded.bundle/x", folder + "/loaded.bundle/Info.plist", "com.test.two");
  Library library = load(folder + "/loaded.bundle/x");
  EXPECT_EQ(bundlePath(find("com.test.two")), folder + "/loaded.bundle");
  library.reset();
  EXPECT_EQ(find("com.test.two"), made.get()) << "unloaded again, the first one made is found";
}

TEST(LoadedBundleTest, IsNoneForALibraryInAPlainFolder) {
  const std::string folder = test::scratchFolder("plain");
  put(folder + "/Info.plist", infoPlist(entry("CFBundleIdentifier", "com.test.plain")));
  test::makeFolders(folder + "/lib");
  std::filesystem::copy_file(someLibrary(), folder + "/lib/x.so");
  const Library library = load(folder + "/lib/x.so");
  EXPECT_EQ(find("com.test.plain"), nullptr) << "the folder above has no extension and the library is not at its top";
}

TEST(LoadedBundleTest, StaysFoundWhileThreadsMakeChangeAndLoadBundles) {
  const std::string folder = test::scratchFolder("threads");
  const std::string loaded = folder + "/loaded.bundle";
  putLibrary(loaded + "/x", loaded + "/Info.plist", "com.test.threads.loaded");
  put(folder + "/changing.bundle/Info.plist", infoPlist(entry("CFBundleIdentifier", "com.test.threads")));
  const Library library = load(loaded + "/x");
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      for (int round = 0; round < 300; ++round) {
        if (thread == 0) {
          // Renamed into place, so that nobody sees half of it.
          put(folder + "/next",
              infoPlist(entry("CFBundleIdentifier", "com.test.threads") + entry("n", std::to_string(round))));
          std::filesystem::rename(folder + "/next", folder + "/changing.bundle/Info.plist");
        }
        const auto changing = bundleAt(folder + "/changing.bundle");
        if (textOf(CFBundleGetIdentifier(changing.get())) != "com.test.threads") ++failures;
        if (thread == 0 && value(changing.get(), "n") != std::to_string(round)) ++failures;
        CFBundleRef const found = find("com.test.threads");
        if (found == nullptr || textOf(CFBundleGetIdentifier(found)) != "com.test.threads") ++failures;
        if (bundlePath(find("com.test.threads.loaded")) != loaded) ++failures;
        if (CFArrayGetCount(CFBundleGetAllBundles()) < 2) ++failures;
        if (thread == 1) {
          const Library again(::dlopen((loaded + "/x").c_str(), RTLD_NOW));
          if (!again) ++failures;
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
}

}  // namespace
