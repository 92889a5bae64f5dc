// service_bundle.h: service bundles of a test.
#pragma once

#include "tests/launch/lists.h"
#include "tests/support/scratch_home.h"

#include <plinth/shared_cf_ref.h>
#include <plinth/string.h>

#include <CoreFoundation/CFURL.h>

#include <filesystem>
#include <string>

namespace test {

// What a bundle holds; every part can be left out or replaced.
struct ServiceBundle {
  std::string path;                                                    // of the bundle's folder
  std::string kind = "servicecontroller:com.brant.test";               // empty: none
  std::string description = "<key>Version</key><integer>1</integer>";  // the entries of "MervaneServiceConfig"
  std::string executable = "worker";                                   // the main one's name; empty: none
  std::string extra;                                                   // further entries of the information dictionary

  std::string contents() const { return path + "/Contents"; }
  std::string executablePath(const std::string& name) const { return contents() + "/Linux/" + name; }
  std::string executablePath() const { return executablePath(executable); }

  void writeExecutable(const std::string& name) const {
    makeFolders(contents() + "/Linux");
    writeFile(executablePath(name), "#!/bin/sh\n");
    std::filesystem::permissions(executablePath(name), std::filesystem::perms{0755});
  }
  void writeInformation(const std::string& entries) const {
    makeFolders(contents());
    writeFile(contents() + "/Info.plist", document("<dict>" + entries + "</dict>"));
  }
  // Everything, as it stands in the fields.
  void write() const {
    std::string entries = extra;
    if (!kind.empty()) entries += "<key>MervaneServiceKind</key><string>" + kind + "</string>";
    if (!executable.empty()) {
      entries += "<key>CFBundleExecutable</key><string>" + executable + "</string>";
      writeExecutable(executable);
    }
    writeInformation(entries + "<key>MervaneServiceConfig</key><dict>" + description + "</dict>");
  }

  plinth::CSharedCFRef<CFURLRef> url() const {
    return CFURLCreateWithFileSystemPath(kCFAllocatorDefault, plinth::CSTR(path)->getStringRef(), kCFURLPOSIXPathStyle,
                                         true);
  }
};

}  // namespace test
