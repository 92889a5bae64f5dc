// translation.h: the native mount's and umount's arguments in the words of Linux. Nothing here looks at the host.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace host_mount {

using Arguments = std::vector<std::string>;

// Arguments that the adapter does not take. The text says which and why, without the program's name.
class Refusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// From "[-o OPTIONS] HOST:/PATH FOLDER" to what the host's mount takes after its name. OPTIONS are the words "soft",
// "intr", "locallocks" and the pair "port=N", "mountport=N", each at most once, with commas between; N is -1 when there
// is no port to name, as without the pair. The version of NFS is "3", "4", "4.0", "4.1" or "4.2"; the empty text stands
// for 3. Throws Refusal for everything else.
Arguments mountArguments(const Arguments& given, const std::string& nfsVersion);

// From "-f FOLDER" to what the host's umount takes after its name. Throws Refusal for everything else.
Arguments umountArguments(const Arguments& given);

}  // namespace host_mount
