// suggestions.h: "did you mean" for a mistyped name.
#pragma once

#include <string>
#include <vector>

namespace tovanctl {

// The message for an unknown name: "no WHAT called "NAME"", then the nearest known name when one is near enough, else
// the known ones when they are few.
std::string unknownName(const std::string& what, const std::string& name, const std::vector<std::string>& known);

}  // namespace tovanctl
