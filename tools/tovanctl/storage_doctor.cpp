// `tovanctl storage doctor`, and what it finds out from the daemon.
#include "tools/tovanctl/storage_doctor.h"

#include <fmt/format.h>
#include <plinth/exception.h>
#include <sys/stat.h>
#include <tovan/constants.h>
#include <tovan/file_util.h>

#include <chrono>
#include <memory>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/interrupt.h"
#include "tools/tovanctl/storage_daemon.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

using Entry = StorageListing::Entry;
using Holder = StorageListing::Holder;

constexpr double kTimeout = 10;  // seconds for the daemon's answer

std::string defaultExportsFile() {
  const plinth::CSharedCFRef<CFStringRef> path(
      TovanExpandTildeInPath(tovan::TovanCorePrivate::kTovanClusterStorageExportsFilePath));
  return text(path.get());
}

void checkExportsFile(Checks& checks, const StorageListing& listing) {
  const std::string& path = listing.exportsFile;
  struct stat facts {};
  if (!listing.exportsProblem.empty()) {
    checks.push_back({"exports file", false, onOneLine(listing.exportsProblem), ""});
  } else if (::stat(path.c_str(), &facts) == 0 && (facts.st_mode & 022U) != 0) {
    checks.push_back({"exports file", false, path + " can be changed by others, so tovan-exports refuses it",
                      "chmod go-w " + shellWord(path)});
  } else {
    checks.push_back({"exports file", true, path, ""});
  }
}

std::string giveBackCommand(const Entry& entry, const char* verb, const Holder& holder) {
  return std::string("tovanctl storage ") + verb + " --client " + shellWord(holder.client) + " --pid " +
         std::to_string(holder.pid) + " -- " + shellWord(entry.path);
}

// What is wrong with an export or a mount. The verb is the one that gives it back.
void checkEntry(Checks& checks, const Entry& entry, const char* verb, const char* misplaced) {
  const std::string path = onOneLine(entry.path);
  if (entry.isLeftOver) {
    checks.push_back({"left over", false, path + " is left over from an earlier run",
                      std::string("tovanctl storage ") + verb + " -- " + shellWord(entry.path)});
  } else if (!entry.isInPlace) {
    checks.push_back({"in place", false, path + " " + misplaced, ""});
  }
  for (const Holder& holder : entry.holders) {
    if (holder.process != "gone") continue;
    checks.push_back({"holders", false,
                      fmt::format("process {} is gone and holds {} of {} for {}", holder.pid,
                                  holder.count == 1 ? "a reference" : std::to_string(holder.count) + " references",
                                  path, onOneLine(holder.client)),
                      giveBackCommand(entry, verb, holder)});
  }
}

void doctor(bool asJson) {
  catchInterrupts();
  Checks checks;
  StorageListing listing;
  listing.exportsFile = defaultExportsFile();
  checkStorageOfDaemon(checks, listing);
  checkExportsOfHost(checks, listing.exportsFile);
  checkMountsOfHost(checks);
  reportChecks(checks, asJson);
}

}  // namespace

void checkStorageOfDaemon(Checks& checks, StorageListing& listing) {
  const auto began = std::chrono::steady_clock::now();
  try {
    listing = StorageDaemon(kTimeout).list();
  } catch (const CommandError& failure) {
    checks.push_back({"daemon", false, failure.what(), failure.code() == kNoDaemon ? "tovanctl up" : ""});
    return;
  }
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - began;
  checks.push_back({"daemon", true, fmt::format("process {} answers in {:.1f} ms", listing.daemon, took.count()), ""});
  checkExportsFile(checks, listing);
  const std::size_t before = checks.size();
  for (const Entry& entry : listing.exports) {
    checkEntry(checks, entry, "unpublish", "is held, but its line is missing; publish it once more");
  }
  for (const Entry& entry : listing.mounts) {
    checkEntry(checks, entry, "unmount", "is held, but nothing is mounted there");
  }
  if (checks.size() > before) return;
  checks.push_back({"holders", true,
                    fmt::format("{} exports and {} mounts, nothing left over, every holder there",
                                listing.exports.size(), listing.mounts.size()),
                    ""});
}

void addStorageDoctor(CLI::App& storage) {
  const auto asJson = std::make_shared<bool>(false);
  CLI::App* const command = storage.add_subcommand(
      "doctor", "What keeps this host from publishing and mounting, and the command that mends it");
  command->add_flag("--json", *asJson, "One JSON document");
  command->callback([asJson] { doctor(*asJson); });
}

}  // namespace tovanctl
