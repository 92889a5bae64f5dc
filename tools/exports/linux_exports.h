// linux_exports.h: exports as the kernel's server takes them (exports(5)) and lists them (/var/lib/nfs/etab).
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tools/exports/configuration.h"

namespace exports {

// Why this path cannot stand in the file; empty when it can. exportfs undoes octal escapes twice over: a folder whose
// name looks like an escape would come out as another folder.
std::string reasonAgainstLinuxPath(std::string_view path);

// The file for /etc/exports.d: for each folder one line with every client. Without clients there are no lines: a path
// alone is exported to everyone. Folders without a form (reasonAgainstLinuxPath) are left out.
std::string linuxExports(const std::vector<std::string>& folders, const std::vector<Client>& clients);

struct ServedExport {
  std::string path;
  std::string host;
  std::vector<std::string> options;
};

// Reads the server's list, ordered by path; what is no entry is passed over.
std::vector<ServedExport> readServed(std::string_view etab);

// Whether the server's list (as readServed gives it) has what was meant under this host's name: all its options, and
// not the opposite access.
bool isServed(const std::vector<ServedExport>& served, std::string_view path, std::string_view host,
              const std::vector<std::string>& options);

// The folders that exportfs has put into its list and yet says it cannot serve, by what it wrote to standard error.
std::set<std::string> unservableFolders(std::string_view errors);

}  // namespace exports
