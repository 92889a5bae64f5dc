// systemd_back_end.h: the back end whose jobs are units of the systemd user manager, beside their records, in the
// user's own unit folder. A job is loaded when its record is there.
#pragma once

#include "tools/launchctl/back_end.h"

namespace launchctl {

class SystemdBackEnd : public BackEnd {
 public:
  // Failure when no manager answers or it does not read this home's units.
  SystemdBackEnd();

  bool load(const JobToLoad& job) override;
  bool unload(const std::string& label) override;
  bool start(const std::string& label) override;
  bool stop(const std::string& label) override;
  std::vector<JobStatus> list() override;
  std::optional<JobStatus> status(const std::string& label) override;

 private:
  std::optional<JobToLoad> record(const std::string& label) const;
  void forget(const std::string& label) const;
  std::vector<JobStatus> statusOf(const std::vector<JobToLoad>& jobs) const;
  void enable(const std::string& unit) const;

  std::string folder_;
};

}  // namespace launchctl
