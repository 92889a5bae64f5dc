// stub_mounts.h: programs in the place of the platform's mount and umount.
#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/system/tool_lookup.h"
#include "tests/storage/storage_support.h"

namespace test {

// As long as the object lives the library finds its mount and umount here. Both note how they were called and succeed,
// unless told otherwise.
class StubMounts {
 public:
  StubMounts() : folder_(scratchFolder("stub mounts")) {
    makeTool("mount", "");
    makeTool("umount", "");
    platform::setToolFolderForTesting(folder_);
  }
  ~StubMounts() { platform::setToolFolderForTesting(""); }
  StubMounts(const StubMounts&) = delete;
  StubMounts& operator=(const StubMounts&) = delete;

  const std::string& folder() const { return folder_; }
  // What the tool does after it has noted its call; "$here" is the folder.
  void makeTool(const std::string& name, const std::string& body) const {
    const std::string path = folder_ + "/" + name;
    writeFile(path, "#!/bin/sh\nhere=${0%/*}\n{ printf '%s' " + name +
                        "; printf '[%s]' \"$@\"; echo; } >> \"$here/calls\"\n" + body + "\n");
    ::chmod(path.c_str(), 0755);
  }
  // A line for each call since the last question, such as "umount[-f][/mnt]".
  std::string calls() const {
    const std::string path = folder_ + "/calls";
    const std::string text = exists(path) ? readFile(path) : "";
    writeFile(path, "");
    return text;
  }

 private:
  std::string folder_;
};

}  // namespace test
