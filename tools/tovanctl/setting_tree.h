// setting_tree.h: the configuration file and its defaults as values under paths of keys.
#pragma once

#include <CoreFoundation/CFDictionary.h>
#include <plinth/shared_cf_ref.h>

#include <map>
#include <string>
#include <vector>

#include "tools/tovanctl/values.h"

namespace tovanctl {

// The keys from the root on.
using SettingPath = std::vector<std::string>;
using SettingLeaves = std::map<SettingPath, plinth::CSharedCFRef<CFTypeRef>>;

// "mervaneconfig / DaemonPort", and back; blanks around the slashes do not matter.
std::string pathText(const SettingPath& path);
SettingPath parsePath(const std::string& text);

// Every value that is no dictionary, and the empty dictionaries, under a value: the value itself when it is one.
SettingLeaves leavesOf(CFTypeRef value, const SettingPath& above = {});

// Null when there is none.
CFTypeRef valueAt(CFDictionaryRef root, const SettingPath& path);

// The root of the file at a path; an empty dictionary when there is none. Throws when it cannot be read.
plinth::CSharedCFRef<CFDictionaryRef> rootOfFile(CFStringRef path);

}  // namespace tovanctl
