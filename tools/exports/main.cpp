// tovan-exports: has the NFS server of a Linux host serve what the library publishes. docs/exports.md describes it.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "tools/exports/configuration.h"
#include "tools/exports/watcher.h"

namespace exports {
namespace {

int run(int argc, char** argv) {
  Arguments arguments;
  bool isForeground = false;
  CLI::App app("Has the NFS server of this host serve what the library publishes", "tovan-exports");
  app.footer(
      "Exit codes: 0 done, 1 failed, 2 wrong command line, 3 the configuration is refused, 4 done, but something that\n"
      "is published is not exported.");
  auto* const mode = app.add_option_group("mode", "exactly one of");
  mode->add_flag("--foreground", isForeground, "follow the library's file until SIGTERM; SIGHUP looks again");
  mode->add_flag("--once", arguments.once, "bring the server up to date and end");
  mode->add_flag("--check", arguments.check, "look only: nothing is written or run");
  mode->require_option(1);
  app.add_option("--exports", arguments.exportsFile, "the library's exports file")->type_name("FILE");
  app.add_option("--configuration", arguments.configurationFile, "hosts and options")
      ->type_name("FILE")
      ->capture_default_str();
  app.add_option("--output", arguments.outputFile, "the file that is written for the server")->type_name("FILE");
  app.add_option("--exportfs", arguments.exportfs, "the program that tells the kernel's server")
      ->type_name("PROGRAM")
      ->capture_default_str();
  app.add_option("--served", arguments.servedList, "the list of what the kernel's server serves")
      ->type_name("FILE")
      ->capture_default_str();
  app.add_flag("--json", arguments.json, "one JSON object for each pass, on one line");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kUsage;
  }
  return isForeground ? watch(arguments) : passOnce(arguments);
}

}  // namespace
}  // namespace exports

int main(int argc, char** argv) {
  try {
    return exports::run(argc, argv);
  } catch (const exports::ConfigurationError& error) {
    std::fprintf(stderr, "tovan-exports: %s\n", error.what());
    return exports::kRefused;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "tovan-exports: %s\n", failure.what());
    return exports::kFailed;
  }
}
