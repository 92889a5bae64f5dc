#include <tovan/launch_ctl.h>

#include "platform/system/error_text.h"
#include "platform/system/tool_lookup.h"

#include <tovan/args_builder.h>
#include <tovan/launchctl_plist.h>
#include <tovan/task2.h>

#include <plinth/exception.h>

#include <cerrno>
#include <iterator>
#include <string>

namespace tovan {

using plinth::CException;
using plinth::CNullPointerException;
using plinth::CParamException;
using plinth::CSTR;
using plinth::CStringRef;

namespace {

constexpr const char* kTool = "/bin/launchctl";
constexpr const char* kSessionTypes[] = {nullptr, "Aqua", "LoginWindow", "Background", "StandardIO", "System"};
constexpr const char* kDomainTypes[] = {nullptr, "system", "local", "network", "user", "all"};

bool isEmpty(const CStringRef& text) { return text.isNull() || text->isEmpty(); }

// Ready to be launched.
CTask2Ref toolTask(const std::vector<CStringRef>& arguments) {
  const std::string path = platform::toolPath(kTool);
  CArgsBuilder list(0);
  list.addArgs(arguments);
  CTask2Ref task = plinth::makeShared<CTask2>(path.c_str(), list);
  CArgsBuilder environment(0);
  for (const std::string& entry : platform::toolEnvironment(kTool, path)) environment.addArg(entry.c_str());
  task->setEnv(environment.getArgs());
  return task;
}

}  // namespace

CLaunchCtl::CLaunchCtl(const CStringRef& plistPath, unsigned long sessionType, unsigned long domainType)
    : plistPath_(CSTR(plistPath)), sessionType_(sessionType), domainType_(domainType) {}

CLaunchCtl::~CLaunchCtl() = default;

void CLaunchCtl::load() { runVerb("load"); }

void CLaunchCtl::unload() { runVerb("unload"); }

void CLaunchCtl::runVerb(const char* verb) {
  if (isEmpty(plistPath_)) throw CNullPointerException("Error: _plistPath is null!");
  taskOutput_ = nullptr;
  std::vector<CStringRef> arguments{CSTR(verb)};
  if (const CStringRef session = getSessionTypeString(sessionType_)) {
    arguments.insert(arguments.end(), {CSTR("-S"), session});
  }
  if (const CStringRef domain = getDomainTypeString(domainType_)) {
    arguments.insert(arguments.end(), {CSTR("-D"), domain});
  }
  arguments.push_back(plistPath_);
  const int status = run(arguments);
  if (status != 0) throw CParamException("CLaunchCtlTask exited with error = %d", status);
}

bool CLaunchCtl::isLoaded(const CStringRef& label) {
  CStringRef wanted = label;
  if (isEmpty(wanted) && !isEmpty(plistPath_)) {
    wanted = plinth::makeShared<CLaunchCtlPList>(plistPath_)->getLabel();
  }
  if (isEmpty(wanted)) throw CNullPointerException("Error: label is null!");
  taskOutput_ = nullptr;
  run({CSTR("list"), CSTR("-x"), wanted});
  return false;
}

// The tool's exit code. Its output is read before the wait: a tool that prints more than a pipe holds would wait for
// ever.
int CLaunchCtl::run(const std::vector<CStringRef>& arguments) {
  const CTask2Ref task = toolTask(arguments);
  if (task->launch() != 0) {
    const int error = errno;
    taskOutput_ = task->getTaskOutput();
    throw CException(plinth::kExceptionTypeUnknown, error, "CLaunchCtlTask failed to launch, error = %s",
                     platform::errorText(error).c_str());
  }
  taskOutput_ = task->getTaskOutput();
  return task->waitForTask();
}

CStringRef CLaunchCtl::getTaskOutput() const { return CSTR(taskOutput_); }

CStringRef CLaunchCtl::getSessionTypeString(unsigned long sessionType) const {
  if (sessionType >= std::size(kSessionTypes)) throw CParamException("Invalid sessionType: 0x%lx", sessionType);
  return CSTR(kSessionTypes[sessionType]);
}

CStringRef CLaunchCtl::getDomainTypeString(unsigned long domainType) const {
  if (domainType >= std::size(kDomainTypes)) throw CParamException("Invalid domainType: 0x%lx", domainType);
  return CSTR(kDomainTypes[domainType]);
}

}  // namespace tovan
