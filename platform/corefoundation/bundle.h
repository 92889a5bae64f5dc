// bundle.h: the layout of bundle objects.
#pragma once

#include <CoreFoundation/CFBundle.h>

#include "platform/corefoundation/bundle_file.h"
#include "platform/corefoundation/bundle_layout.h"
#include "platform/corefoundation/runtime.h"

#include <map>
#include <mutex>
#include <string>

namespace cf {

// What a bundle object holds. Everything but the string tables is set when it is made and never changes.
struct BundleContent {
  std::string path;  // as named, absolute, without a slash at its end
  BundleLayout layout;
  FileStamp infoStamp;
  bool infoWasSettled = false;  // whether an equal stamp means an equal file
  Owned<CFDictionaryRef> info;
  std::string program;  // the main executable of a bundle made up for a program that lies in none

  // String tables by path, read on first use.
  mutable std::mutex tablesMutex;
  mutable std::map<std::string, Owned<CFDictionaryRef>> tables;
};

extern const CFRuntimeClass kBundleClass;

// A bundle object of a directory, its dictionary read now. The caller owns it.
CFBundleRef createBundle(const std::string& path, const std::string& program = {});

// The information dictionary at a path; empty when there is none to be had. The stamp is that of the file read.
Owned<CFDictionaryRef> readInfoDictionary(const std::string& path, FileStamp& stamp);

// Null for anything that is no bundle.
const BundleContent* bundleContent(CFBundleRef bundle) noexcept;

}  // namespace cf

struct CFBundleStorage {
  CFObjectHead head;
  const cf::BundleContent* content;  // owned
};
