// An include goes down the layer table, never up, and never sideways inside a row.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// The rows of the table, lowest first. Folders of one row do not see each other.
const std::vector<std::vector<std::string>> kRows = {
    {"platform/corefoundation"}, {"platform/system"}, {"foundation"}, {"plist", "notify"}, {"logging"}, {"launch"},
    {"control", "storage"},      {"include"},  // the header of all headers sees every layer
};

// Which layer implements an exported header; every header of include/tovan must stand here.
const std::map<std::string, std::string> kExportedHeaders = {
    {"export.h", "foundation"},
    {"constants.h", "foundation"},
    {"cf_util.h", "foundation"},
    {"file_util.h", "foundation"},
    {"time_stamp.h", "foundation"},
    {"version.h", "foundation"},
    {"framework_location.h", "foundation"},
    {"message_digest.h", "foundation"},
    {"setting_table.h", "plist"},
    {"property_list_basic_file.h", "plist"},
    {"property_list_file.h", "plist"},
    {"tovan_config_file.h", "plist"},
    {"tovan_config_updater.h", "plist"},
    {"cluster_prefs.h", "plist"},
    {"service_config_file.h", "plist"},
    {"service_cache_file.h", "plist"},
    {"service_pid_file.h", "plist"},
    {"service_schedule.h", "plist"},
    {"host_perf_score_file.h", "plist"},
    {"notification_names.h", "notify"},
    {"notifications.h", "notify"},
    {"logger.h", "logging"},
    {"log_stream.h", "logging"},
    {"log_mark.h", "logging"},
    {"global_logger.h", "logging"},
    {"args_builder.h", "launch"},
    {"plist_updater.h", "launch"},
    {"launchctl_plist.h", "launch"},
    {"service_util.h", "launch"},
    {"task.h", "launch"},
    {"task2.h", "launch"},
    {"user_task.h", "launch"},
    {"launch_ctl.h", "launch"},
    {"service_installation.h", "control"},
    {"daemon_control.h", "control"},
    {"service_control.h", "control"},
    {"dynamic_instances.h", "control"},
    {"nfs_shared_storage_publisher.h", "storage"},
    {"shared_storage.h", "storage"},
    {"shared_storage_entries.h", "storage"},
    {"shared_storage_exception.h", "storage"},
    {"nfs_shared_storage.h", "storage"},
    {"nfs_shared_storage_subscriber.h", "storage"},
    {"dn_shared_storage_server.h", "storage"},
    {"dn_shared_storage_client.h", "storage"},
    {"shared_storage_utils.h", "storage"},
    {"tovan.h", "include"},
};

int rowOf(const std::string& folder) {
  for (std::size_t row = 0; row < kRows.size(); ++row) {
    for (const std::string& cell : kRows[row]) {
      if (cell == folder) return static_cast<int>(row);
    }
  }
  return -1;
}

bool startsWith(const std::string& text, const std::string& prefix) { return text.rfind(prefix, 0) == 0; }

// The layer that a file of the tree belongs to; empty when the table says nothing about it.
std::string layerOfFile(const std::string& path) {
  if (startsWith(path, "platform/corefoundation/")) return "platform/corefoundation";
  if (startsWith(path, "platform/system/")) return "platform/system";
  if (startsWith(path, "include/plinth/")) return "foundation";
  if (startsWith(path, "include/tovan/")) {
    const auto found = kExportedHeaders.find(path.substr(sizeof "include/tovan/" - 1));
    return found == kExportedHeaders.end() ? "" : found->second;
  }
  const std::string first = path.substr(0, path.find('/'));
  return rowOf(first) >= 0 || first == "tools" ? first : "";
}

// The layer that an include names; empty for the system's headers.
std::string layerOfInclude(const std::string& name, const std::string& includer) {
  if (startsWith(name, "CoreFoundation/")) return "platform/corefoundation";
  if (startsWith(name, "plinth/")) return "foundation";
  if (startsWith(name, "tovan/")) return layerOfFile("include/" + name);
  if (name.find('/') == std::string::npos) return includer;  // beside the file itself, or the system's
  return layerOfFile(name);
}

struct Include {
  std::string file;
  int line;
  std::string name;
};

std::vector<Include> includesOf(const fs::path& root, const std::string& folder) {
  static const std::regex directive(R"re(^\s*#\s*include\s*[<"]([^>"]+)[>"])re");
  std::vector<Include> found;
  if (!fs::exists(root / folder)) return found;
  for (const auto& entry : fs::recursive_directory_iterator(root / folder)) {
    const std::string extension = entry.path().extension().string();
    if (extension != ".h" && extension != ".cpp" && extension != ".c") continue;
    std::ifstream file(entry.path());
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
      std::smatch match;
      if (std::regex_search(line, match, directive)) {
        found.push_back({fs::relative(entry.path(), root).string(), number, match[1].str()});
      }
    }
  }
  return found;
}

const fs::path kRoot = TOVAN_SOURCE_DIR;

TEST(LayersTest, EveryExportedHeaderHasALayer) {
  for (const auto& entry : fs::directory_iterator(kRoot / "include/tovan")) {
    const std::string name = entry.path().filename().string();
    EXPECT_EQ(kExportedHeaders.count(name), 1U) << "include/tovan/" << name << " stands in no row of the table";
  }
}

TEST(LayersTest, IncludesGoDownTheTableOnly) {
  int seen = 0;
  for (const std::string folder :
       {"platform", "foundation", "plist", "notify", "logging", "launch", "control", "storage", "include"}) {
    for (const Include& include : includesOf(kRoot, folder)) {
      const std::string from = layerOfFile(include.file);
      const bool ours = fs::exists(kRoot / include.name) || include.name.find("CoreFoundation/") == 0 ||
                        include.name.find("tovan/") == 0 || include.name.find("plinth/") == 0;
      if (!ours) continue;  // the system's, such as <plist/plist.h>
      const std::string to = layerOfInclude(include.name, from);
      if (from.empty() || to.empty() || from == to) continue;
      ++seen;
      EXPECT_LT(rowOf(to), rowOf(from)) << include.file << ":" << include.line << " includes " << include.name << ": "
                                        << from << " must not see " << to;
      EXPECT_NE(to, "tools") << include.file << ":" << include.line << " includes " << include.name;
    }
  }
  EXPECT_GT(seen, 50) << "the test looked at next to nothing";
}

TEST(LayersTest, ToolsSeeTheExportedInterfaceOnly) {
  int seen = 0;
  for (const Include& include : includesOf(kRoot, "tools")) {
    if (include.name.find('/') == std::string::npos) continue;
    const bool own = startsWith(include.name, "tools/");
    const bool exported = startsWith(include.name, "tovan/") || startsWith(include.name, "plinth/") ||
                          startsWith(include.name, "CoreFoundation/");
    const bool ours = fs::exists(kRoot / include.name);
    seen += exported ? 1 : 0;
    EXPECT_TRUE(own || exported || !ours) << include.file << ":" << include.line << " includes " << include.name;
  }
  EXPECT_GT(seen, 3) << "the test looked at next to nothing";
}

// The library's own code is written against the native platform's interfaces.
TEST(LayersTest, LinuxStaysInPlatformAndTools) {
  static const std::regex linuxHeader(
      R"(^(linux/.*|sys/(epoll|eventfd|timerfd|inotify|signalfd|prctl|xattr|syscall|sendfile|random|vfs)\.h|systemd/.*|libmount/.*)$)");
  static const std::regex conditional(
      R"(^\s*#\s*(if|ifdef|ifndef|elif)\b.*\b(__linux__|__APPLE__|__GLIBC__|_GNU_SOURCE)\b)");
  for (const std::string folder :
       {"foundation", "plist", "notify", "logging", "launch", "control", "storage", "include"}) {
    for (const Include& include : includesOf(kRoot, folder)) {
      EXPECT_FALSE(std::regex_match(include.name, linuxHeader))
          << include.file << ":" << include.line << " includes " << include.name;
    }
    if (!fs::exists(kRoot / folder)) continue;
    for (const auto& entry : fs::recursive_directory_iterator(kRoot / folder)) {
      std::ifstream file(entry.path());
      std::string line;
      for (int number = 1; std::getline(file, line); ++number) {
        EXPECT_FALSE(std::regex_search(line, conditional)) << entry.path() << ":" << number << ": " << line;
      }
    }
  }
}

}  // namespace
