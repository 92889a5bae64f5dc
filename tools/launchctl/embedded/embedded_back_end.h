// embedded_back_end.h: the back end whose jobs run under launchd-host, which it starts when it is needed.
#pragma once

#include "tools/launchctl/back_end.h"
#include "tools/launchctl/embedded/host_folder.h"

namespace launchctl {

class EmbeddedBackEnd : public BackEnd {
 public:
  // Whether the user has jobs here. Makes nothing.
  static bool inUse();

  bool load(const JobToLoad& job) override;
  bool unload(const std::string& label) override;
  bool start(const std::string& label) override;
  bool stop(const std::string& label) override;
  std::vector<JobStatus> list() override;
  std::optional<JobStatus> status(const std::string& label) override;

 private:
  // The host's answer; nothing when there is no host and none is needed: `needed` false, and no jobs were left.
  std::optional<Dictionary> ask(const Dictionary& request, bool needed);
  std::vector<JobStatus> askForJobs(const Dictionary& request);
  bool askAbout(const char* verb, const std::string& label);
  Descriptor reachHost(bool needed);

  HostFolder folder_;
};

}  // namespace launchctl
