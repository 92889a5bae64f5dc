// launch_ctl.h: CLaunchCtl, which loads and unloads one launch agent with the tool /bin/launchctl, and asks about one.
//
// Every operation waits until the tool has ended, and, when the tool leaves processes behind that keep its output open,
// until these have. What the tool printed is kept in every case, so that a caller can show its complaint. One object is
// used by one thread at a time.
//
// On hosts without /bin/launchctl the adapter of that name in lib/tovan/bin stands in for it.
#pragma once

#include <tovan/export.h>

#include <plinth/shared_object.h>
#include <plinth/string.h>

#include <vector>

namespace tovan {

class TOVAN_EXPORT CLaunchCtl : public plinth::CSharedObject {
 public:
  // The job description's path; the session type and the domain type, numbers of the tables below.
  CLaunchCtl(const plinth::CStringRef& plistPath, unsigned long sessionType, unsigned long domainType);

  // launchctl load|unload [-S SESSION] [-D DOMAIN] PATH. Both throw:
  //   CNullPointerException "Error: _plistPath is null!" for an empty path;
  //   what getSessionTypeString() and getDomainTypeString() throw;
  //   CException (type 255, the errno as code) "CLaunchCtlTask failed to launch, error = REASON";
  //   CParamException "CLaunchCtlTask exited with error = STATUS" when the tool does not end with 0. A tool that cannot
  //   be executed counts as one that ended with the errno value, 2 when there is none.
  void load();
  void unload();

  // launchctl list -x LABEL; an empty label stands for the one in the job description. The result is always false, on
  // purpose: the answer is the output, the job's listing or the tool's complaint, and the tool's exit status plays no
  // part. Throws CNullPointerException "Error: label is null!" when there is no label, the launch failure above, and
  // what CLaunchCtlPList throws for a description that cannot be read.
  bool isLoaded(const plinth::CStringRef& label);

  // What the tool printed during the last operation; an empty holder before the first and when it was not started.
  plinth::CStringRef getTaskOutput() const;

  // 0 none (an empty holder), 1 "Aqua", 2 "LoginWindow", 3 "Background", 4 "StandardIO", 5 "System"; above,
  // CParamException "Invalid sessionType: 0xNUMBER".
  plinth::CStringRef getSessionTypeString(unsigned long sessionType) const;
  // 0 none (an empty holder), 1 "system", 2 "local", 3 "network", 4 "user", 5 "all"; above, CParamException "Invalid
  // domainType: 0xNUMBER".
  plinth::CStringRef getDomainTypeString(unsigned long domainType) const;

 protected:
  ~CLaunchCtl() override;

 private:
  void runVerb(const char* verb);
  int run(const std::vector<plinth::CStringRef>& arguments);

  plinth::CStringRef plistPath_;
  unsigned long sessionType_;
  unsigned long domainType_;
  plinth::CStringRef taskOutput_;
};

using CLaunchCtlRef = plinth::CSharedObjectRef<CLaunchCtl>;

}  // namespace tovan
