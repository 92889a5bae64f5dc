// exports_bench.h: tovan-exports between a library's file and a stand-in for exportfs.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/command.h"
#include "tests/support/scratch_home.h"

namespace test {

// The stand-in lists what the file in /etc/exports.d's place says, in the server's form; it counts its runs.
class ExportsBench {
 public:
  ExportsBench() : folder(scratchFolder("exports")) {
    ::umask(022);  // files that others can write are refused
    ::chmod(folder.c_str(), 0755);
    writeExportfs("cp '" + output() + "' '" + folder + "/seen'\n" +
                  "sed -n 's/^\\(\\/[^ ]*\\) \\([^ ]*\\)$/\\1\\t\\2/p' '" + output() + "' > '" + served() + "'\n");
  }

  std::string library() const { return folder + "/library/exports"; }
  std::string configuration() const { return folder + "/exports.conf"; }
  std::string output() const { return folder + "/exports.d/tovan.exports"; }
  std::string served() const { return folder + "/etab"; }
  std::string exportfs() const { return folder + "/exportfs"; }

  void writeExportfs(const std::string& body) const {
    writeFile(exportfs(), "#!/bin/sh\necho \"$@\" >> '" + folder + "/runs'\n" + body);
    ::chmod(exportfs().c_str(), 0755);
  }
  void publish(const std::string& lines) const {
    makeFolders(folder + "/library");
    writeFile(library(), lines);
  }
  void configure(const std::string& text) const { writeFile(configuration(), text); }
  std::string makeFolder(const std::string& name) const {
    const std::string path = folder + "/" + name;
    makeFolders(path);
    return path;
  }

  std::vector<std::string> arguments(const std::vector<std::string>& first) const {
    std::vector<std::string> all = first;
    const std::vector<std::string> places = {"--exports", library(),  "--configuration", configuration(), "--output",
                                             output(),    "--served", served(),          "--exportfs",    exportfs()};
    all.insert(all.end(), places.begin(), places.end());
    return all;
  }
  CommandResult run(const std::vector<std::string>& first) const {
    return runCommand("tovan-exports", arguments(first));
  }

  // How often the stand-in was run with -ra.
  std::size_t runs() const {
    const std::string text = exists(folder + "/runs") ? readFile(folder + "/runs") : "";
    EXPECT_EQ(text.find_first_not_of("-ra\n"), std::string::npos) << text;
    return text.size() / 4;
  }

  const std::string folder;
};

inline const std::string kExportsHead = "# Written by tovan-exports, which replaces it: do not edit.\n";
inline const std::string kReadWrite = "(rw,sync,secure,root_squash,no_subtree_check)";

}  // namespace test
