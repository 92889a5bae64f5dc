// host.h: launchd-host, the process that keeps a user's jobs. One thread turns on epoll: the socket, its clients,
// signals (children that end; SIGTERM and SIGINT, which end all jobs and then the host), the folders of triggers, and
// the processes that a former host left.
//
// There is one per folder: it holds the folder's lock "host.lock" as long as it lives. Its jobs stand in the state
// file, which is written before a job's process runs and after each change; a host that finds one takes its jobs over.
// It ends, and the file goes, when no job is left and no client asks.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tools/launchctl/descriptor.h"
#include "tools/launchctl/embedded/frame.h"
#include "tools/launchctl/embedded/host_folder.h"
#include "tools/launchctl/embedded/job.h"
#include "tools/launchctl/path_watch.h"

namespace launchctl {

class Host {
 public:
  // Becomes the host of its folder: waits for a former one to end, takes over what it left, and listens. Failure when
  // the folder cannot be used.
  Host();
  // Turns until there is nothing left to do.
  void run();

 private:
  struct Client {
    Descriptor socket;
    FrameReader reader;
    std::string unsent;
    Dictionary waiting;          // a request whose answer has to wait
    unsigned long endsSeen = 0;  // for a stop that waits
  };

  void watch(int descriptor, std::uint32_t events);
  void takeOver();
  void acceptClients();
  void serve(int descriptor, std::uint32_t events);
  bool readFrom(Client& client);
  bool writeTo(Client& client);
  void reply(Client& client, const Dictionary& answer);
  void dispatch(Client& client, const Dictionary& request);
  Dictionary answerTo(Client& client, const Dictionary& request);
  Dictionary load(Client& client, const Dictionary& request);
  Dictionary unload(Client& client, const Dictionary& request, Job& job);
  Dictionary start(Job& job);
  Dictionary stop(Client& client, const Dictionary& request, Job& job);
  Dictionary wait(Client& client, const Dictionary& request, const Job& job);
  void answerWaiters();

  void handleSignals();
  void reapChildren();
  void pollAdopted(int descriptor);
  void handleTriggers();
  bool wants(const Job& job) const;
  void watchTriggers();
  void advance();
  void removeUnloaded();
  void save();
  void log(const std::string& line);
  int timeout() const;
  bool finished() const;

  HostFolder folder_;
  Descriptor lock_;
  Descriptor epoll_;
  Descriptor listener_;
  Descriptor signals_;
  PathWatch triggers_;
  std::map<std::string, std::unique_ptr<Job>> jobs_;
  std::map<int, std::unique_ptr<Client>> clients_;
  TimePoint idleSince_;
  TimePoint nextPoll_;
  bool served_ = false;
  bool ending_ = false;  // SIGTERM came
  bool dirty_ = false;   // the state file is behind
  std::string lastLine_;
};

}  // namespace launchctl
