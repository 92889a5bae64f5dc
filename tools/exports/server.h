// server.h: telling the server, and asking it what it serves.
#pragma once

#include <string>
#include <vector>

#include "tools/exports/report.h"

namespace exports {

// Runs "PROGRAM -ra". What it says goes into the report's notes when it ends with an error, for it ends so for one bad
// host among many; the folders that it says it cannot serve become unservable. Failure when it cannot be run or is not
// done within a minute.
void reloadKernelServer(const std::string& program, Report& report);

// Sets isServed of every export from the server's list (exportfs(8): /var/lib/nfs/etab), but of none that is
// unservable. The list has hosts under their canonical names. A list that is not there serves nothing. Failure when it
// cannot be read.
void readBack(const std::string& servedList, const std::vector<Client>& clients, Report& report);

// Has the nfs-ganesha of this PID file read its configuration again, or notes how it is started.
void reloadGanesha(const Configuration& configuration, Report& report);

}  // namespace exports
