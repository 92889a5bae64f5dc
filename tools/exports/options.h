// options.h: the options of an export, from the table of those that are taken.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace exports {

struct OptionsResult {
  std::vector<std::string> options;  // complete: every choice that Linux would make by itself is written out
  std::string reason;                // why they are refused; empty when they are taken
};

// Reads OPTION,OPTION...; the empty text stands for the defaults: ro,sync,secure,root_squash,no_subtree_check. An
// unknown option is refused, as are two that contradict each other: Linux drops every line of a file with the one, and
// takes the last of the others.
OptionsResult readOptions(std::string_view text);

// Stands among options for a file-system identifier made of the folder's path: what file systems without an
// identifier of their own need.
inline constexpr const char* kIdentifierOfPath = "fsid=path";
// The identifier as an option: fsid= and a UUID, the same for the same path.
std::string identifierOption(std::string_view path);

bool hasOption(const std::vector<std::string>& options, std::string_view option);
// The options with commas, for a folder.
std::string optionsText(const std::vector<std::string>& options, std::string_view path);

}  // namespace exports
