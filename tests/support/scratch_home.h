// scratch_home.h: a home and a temporary folder that belong to one test process.
#pragma once

#include <string>

namespace test {

// The scratch home of this process, without a trailing slash; $HOME names it. It is there before the first test and
// goes, with all it holds, when the process ends.
const std::string& scratchHome();
// A fresh, empty folder inside the scratch home, for one test.
std::string scratchFolder(const std::string& name);

// The whole content of a file; a missing file is a test failure that names the path.
std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);
bool exists(const std::string& path);
void makeFolders(const std::string& path);

}  // namespace test
