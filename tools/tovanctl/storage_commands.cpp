// `tovanctl storage`: publish, unpublish, mount, unmount and list.
#include <plinth/exception.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tools/tovanctl/commands.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/interrupt.h"
#include "tools/tovanctl/output.h"
#include "tools/tovanctl/storage_daemon.h"
#include "tools/tovanctl/storage_hold.h"
#include "tools/tovanctl/storage_names.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

constexpr double kTimeout = 60;  // seconds; the daemon gives a mount 55

struct Arguments {
  std::string url;
  std::string path;
  std::vector<std::string> places;
  StorageHolder holder;
  bool hold = false;
  bool json = false;
  double timeout = kTimeout;
};

// What a finished operation says; done is "published" and the like.
void say(const Arguments& arguments, const std::string& operation, const std::string& done, const std::string& path,
         const std::string& url) {
  if (arguments.json) {
    Json document = {{"operation", operation}, {"path", path}};
    if (!url.empty()) document["url"] = url;
    document["client"] = arguments.holder.client;
    document["pid"] = arguments.holder.pid > 0 ? Json(arguments.holder.pid) : Json(nullptr);
    printJsonLine(document);
  } else {
    const std::string process = arguments.holder.pid > 0 ? ", process " + std::to_string(arguments.holder.pid) : "";
    print(done + " " + onOneLine(path) + (url.empty() ? "" : " from " + onOneLine(url)) + " for " +
          onOneLine(arguments.holder.client) + process + "\n");
  }
  finishOutput();
}

void checkHolder(Arguments& arguments) {
  checkClientName(arguments.holder.client);
  if (arguments.hold) arguments.holder.pid = ::getpid();
}

void publish(Arguments arguments) {
  checkHolder(arguments);
  const std::string path = storagePath(arguments.path);
  catchInterrupts();
  StorageDaemon daemon(arguments.timeout);
  const auto take = [&] { daemon.publish(path, arguments.holder); };
  const auto giveBack = [&] { daemon.unpublish(path, arguments.holder); };
  if (!arguments.hold) {
    take();
    return say(arguments, "publish", "published", path, "");
  }
  holdUntilInterrupted({take, giveBack, [&] { say(arguments, "publish", "published", path, ""); },
                        [&] { say(arguments, "unpublish", "gave back", path, ""); }},
                       daemon);
}

void unpublish(Arguments arguments) {
  checkHolder(arguments);
  const std::string path = storagePath(arguments.path);
  catchInterrupts();
  StorageDaemon(arguments.timeout).unpublish(path, arguments.holder);
  say(arguments, "unpublish", "gave back", path, "");
}

// The mount is done, whatever becomes of the look at it; but a daemon that ends may take it along.
void warnWhenNotMounted(StorageDaemon& daemon, const std::string& path) {
  StorageListing listing;
  try {
    listing = daemon.list();
  } catch (const CommandError& failure) {
    if (failure.code() == kNoDaemon) throw;
    return message("the mount command succeeded; whether " + onOneLine(path) +
                   " is a mount point cannot be seen: " + failure.what());
  }
  const auto mount = std::find_if(listing.mounts.begin(), listing.mounts.end(),
                                  [&path](const StorageListing::Entry& entry) { return entry.path == path; });
  if (mount == listing.mounts.end() || mount->isInPlace) return;
  message(onOneLine(path) + " is not a mount point, although the mount command succeeded");
}

void mount(Arguments arguments) {
  checkHolder(arguments);
  const std::string url = storageURL(arguments.url);
  const std::string path = storagePath(arguments.path);
  catchInterrupts();
  StorageDaemon daemon(arguments.timeout);
  const auto take = [&] {
    daemon.mount(url, path, arguments.holder);
    warnWhenNotMounted(daemon, path);
  };
  const auto giveBack = [&] { daemon.unmount(url, path, arguments.holder); };
  if (!arguments.hold) {
    take();
    return say(arguments, "mount", "mounted", path, url);
  }
  holdUntilInterrupted({take, giveBack, [&] { say(arguments, "mount", "mounted", path, url); },
                        [&] { say(arguments, "unmount", "gave back", path, url); }},
                       daemon);
}

// The library unmounts whatever is there. A command that a person types does not reach what others have mounted.
void unmount(Arguments arguments) {
  checkHolder(arguments);
  const std::string path = storagePath(arguments.places.back());
  std::string url = arguments.places.size() > 1 ? storageURL(arguments.places.front()) : "";
  catchInterrupts();
  StorageDaemon daemon(arguments.timeout);
  const StorageListing listing = daemon.list();
  const auto there = std::find_if(listing.mounts.begin(), listing.mounts.end(),
                                  [&path](const StorageListing::Entry& entry) { return entry.path == path; });
  if (there == listing.mounts.end()) {
    throw CommandError(kUnknownName, path + " is no mount of the daemon's; `umount` unmounts what others mounted");
  }
  if (url.empty()) url = there->url;
  daemon.unmount(url, path, arguments.holder);
  say(arguments, "unmount", "gave back", path, url);
}

void list(const Arguments& arguments) {
  catchInterrupts();
  const StorageListing listing = StorageDaemon(arguments.timeout).list();
  if (arguments.json) return printJson(listingAsJson(listing));
  print(listingAsText(listing, wantsColour()));
}

using Shared = std::shared_ptr<Arguments>;

CLI::App* addCommand(CLI::App& storage, const Shared& arguments, const char* name, const char* help) {
  CLI::App* const command = storage.add_subcommand(name, help);
  command->add_flag("--json", arguments->json, "JSON documents, one a line");
  addTimeout(*command, arguments->timeout, "Seconds to wait for the daemon's answer");
  return command;
}

void addHolder(CLI::App& command, const Shared& arguments, bool mayHold) {
  command.add_option("--client", arguments->holder.client, "In whose name")->capture_default_str();
  CLI::Option* const pid = command.add_option("--pid", arguments->holder.pid,
                                              mayHold ? "The process that holds it; nobody in particular when not given"
                                                      : "The process that held it; not known when not given");
  pid->check(CLI::Range(1L, static_cast<long>(std::numeric_limits<std::int32_t>::max())))->default_str("");
  if (!mayHold) return;
  command.add_flag("--hold", arguments->hold, "Hold it with this process until Ctrl-C or SIGTERM, then give it back")
      ->excludes(pid);
}

}  // namespace

void addStorageCommands(CLI::App& app) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App& storage = *app.add_subcommand("storage", "Publish and mount shared storage through the daemon");
  storage.require_subcommand(1);

  CLI::App* command = addCommand(storage, arguments, "publish", "Publish a folder of this host to the others");
  command->add_option("PATH", arguments->path, "The folder; made when it is missing")->required();
  addHolder(*command, arguments, true);
  command->callback([arguments] { publish(*arguments); });

  command = addCommand(storage, arguments, "unpublish", "Give a reference to a published folder back");
  command->add_option("PATH", arguments->path, "The folder")->required();
  addHolder(*command, arguments, false);
  command->callback([arguments] { unpublish(*arguments); });

  command = addCommand(storage, arguments, "mount", "Mount what another host published");
  command->add_option("URL", arguments->url, "HOST:/PATH, or nfs://HOST/PATH?port=N")->required();
  command->add_option("PATH", arguments->path, "The folder to mount it on; made when it is missing")->required();
  addHolder(*command, arguments, true);
  command->callback([arguments] { mount(*arguments); });

  command = addCommand(storage, arguments, "unmount", "Give a reference to a mounted folder back");
  command->add_option("PLACE", arguments->places, "The folder; before it may stand what is mounted there")
      ->option_text("[URL] PATH REQUIRED")
      ->required()
      ->expected(1, 2);
  addHolder(*command, arguments, false);
  command->callback([arguments] { unmount(*arguments); });

  command = addCommand(storage, arguments, "list", "Every export and mount, and who holds it");
  command->callback([arguments] { list(*arguments); });

  addStorageDoctor(storage);
}

}  // namespace tovanctl
