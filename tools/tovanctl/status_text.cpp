// The status for people and for programs.
#include <fmt/format.h>
#include <sys/wait.h>

#include <cmath>

#include "tools/tovanctl/status.h"
#include "tools/tovanctl/table.h"

namespace tovanctl {
namespace {

constexpr int kExitUnknown = -1;  // launchctl's word for an end that nobody saw

Json processAsJson(const std::optional<Process>& process) {
  Json object = Json::object();
  object["pid"] = process ? Json(process->pid) : Json(nullptr);
  object["upTime"] = process ? Json(std::round(process->upTime * 100) / 100) : Json(nullptr);
  return object;
}

Json lastExitAsJson(const JobState& job) {
  if (!job.lastExitStatus || *job.lastExitStatus == kExitUnknown) return nullptr;
  const int status = *job.lastExitStatus;
  if (WIFSIGNALED(status)) return Json{{"signal", WTERMSIG(status)}};
  return Json{{"code", WEXITSTATUS(status)}};
}

Json instanceAsJson(const InstanceState& instance) {
  Json object = Json::object();
  object["instance"] = instance.number;
  object["dynamic"] = instance.dynamic;
  object["state"] = stateText(instance);
  object.update(processAsJson(instance.process));
  if (!instance.job) return object;
  object["label"] = instance.job->label;
  object["jobDescription"] = instance.job->path;
  object["trigger"] = {{"path", instance.job->trigger}, {"present", instance.jobState.trigger}};
  object["loaded"] = instance.jobState.loaded;
  object["lastExit"] = lastExitAsJson(instance.jobState);
  object["problem"] = instance.jobState.problem.empty() ? Json(nullptr) : Json(instance.jobState.problem);
  return object;
}

Json instancesAsJson(const std::vector<InstanceState>& instances) {
  Json list = Json::array();
  for (const InstanceState& instance : instances) list.push_back(instanceAsJson(instance));
  return list;
}

Json daemonAsJson(const DaemonState& daemon) {
  Json object = Json::object();
  object["running"] = daemon.running;
  object.update(processAsJson(daemon.process));
  object["version"] = daemon.running ? Json(daemon.version) : Json(nullptr);
  object["otherVersionRunning"] = daemon.otherVersion;
  object["otherVersionPid"] = daemon.otherProcess ? Json(*daemon.otherProcess) : Json(nullptr);
  object["otherVersionHome"] = daemon.otherHome.empty() ? Json(nullptr) : Json(daemon.otherHome);
  return object;
}

Json busAsJson(const BusState& bus) {
  Json object = Json::object();
  object["reachable"] = bus.reachable;
  object["address"] = bus.address.empty() ? Json(nullptr) : Json(bus.address);
  object["place"] = bus.place.empty() ? Json(nullptr) : Json(bus.place);
  object["problem"] = bus.problem.empty() ? Json(nullptr) : Json(bus.problem);
  return object;
}

std::string daemonLine(const DaemonState& daemon, bool colour) {
  std::string line = "Daemon  ";
  if (daemon.process) {
    line += styled("running", Style::good, colour) + ", process " + std::to_string(daemon.process->pid) + ", up " +
            upTimeText(daemon.process->upTime) + ", version " + daemon.version;
  } else {
    line += styled(daemon.running ? "running" : "not running", daemon.running ? Style::good : Style::warning, colour);
  }
  if (isInTheWay(daemon)) line += "\n        " + styled(otherDaemonText(daemon), Style::bad, colour);
  return line + "\n";
}

std::string busLine(const BusState& bus, bool colour) {
  if (bus.reachable) return "Bus     " + styled("reachable", Style::good, colour) + ", " + bus.address + "\n";
  return "Bus     " + styled("not running", Style::warning, colour) + " (" + bus.problem + ")\n";
}

Style styleOf(const InstanceState& instance, bool wanted) {
  if (!instance.jobState.problem.empty()) return Style::bad;
  if (instance.process) return wanted ? Style::good : Style::warning;
  return wanted ? Style::warning : Style::plain;
}

void addRow(Table& table, const std::string& name, const InstanceState& instance, bool isEnabled, bool isKnown) {
  const bool wanted = instance.dynamic || isEnabled;
  const std::string number = std::to_string(instance.number) + (instance.dynamic ? " (dynamic)" : "");
  const std::string state =
      stateText(instance) + (instance.jobState.problem.empty() ? "" : ": " + instance.jobState.problem);
  table.add({name, isKnown ? number : "-", isKnown ? (isEnabled ? "yes" : "no") : "-",
             instance.process ? std::to_string(instance.process->pid) : "-",
             instance.process ? upTimeText(instance.process->upTime) : "-",
             instance.job ? (instance.jobState.trigger ? "yes" : "no") : "-", lastExitText(instance), state},
            styleOf(instance, wanted && isKnown));
}

}  // namespace

std::string stateText(const InstanceState& instance) {
  if (instance.process) return "running";
  if (!instance.job) return "stopped";
  return instance.jobState.loaded ? "loaded" : "not loaded";
}

std::string lastExitText(const InstanceState& instance) {
  if (!instance.jobState.loaded || !instance.jobState.lastExitStatus) return "-";
  const int status = *instance.jobState.lastExitStatus;
  if (status == kExitUnknown) return "unknown";
  if (WIFSIGNALED(status)) return "signal " + std::to_string(WTERMSIG(status));
  return "exit " + std::to_string(WEXITSTATUS(status));
}

std::string upTimeText(double seconds) {
  const auto whole = static_cast<long long>(seconds);
  if (whole < 60) return fmt::format("{} s", whole);
  if (whole < 3600) return fmt::format("{} min {:02} s", whole / 60, whole % 60);
  if (whole < 86400) return fmt::format("{} h {:02} min", whole / 3600, whole / 60 % 60);
  return fmt::format("{} d {:02} h", whole / 86400, whole / 3600 % 24);
}

Json statusAsJson(const HostState& host) {
  Json services = Json::array();
  for (const ServiceState& service : host.services) {
    Json object = Json::object();
    object["name"] = service.name;
    object["displayName"] = service.displayName;
    object["startedBy"] = service.launchd ? "launchd" : "daemon";
    object["enabled"] = service.enabled;
    object["instances"] = instancesAsJson(service.instances);
    services.push_back(std::move(object));
  }
  return Json{{"daemon", daemonAsJson(host.daemon)},
              {"bus", busAsJson(host.bus)},
              {"services", std::move(services)},
              {"strayJobs", instancesAsJson(host.strays)}};
}

std::string statusAsText(const HostState& host, bool colour) {
  std::string out = daemonLine(host.daemon, colour) + busLine(host.bus, colour) + "\n";
  if (host.services.empty() && host.strays.empty()) return out + "No service is installed.\n";
  Table table({"SERVICE", "INSTANCE", "ENABLED", "PROCESS", "UP", "TRIGGER", "LAST EXIT", "STATE"});
  for (const ServiceState& service : host.services) {
    for (const InstanceState& instance : service.instances) {
      addRow(table, service.name, instance, service.enabled, true);
    }
    if (service.instances.empty()) table.add({service.name, "none", service.enabled ? "yes" : "no"});
  }
  for (const InstanceState& stray : host.strays)
    addRow(table, stray.job->label + " (not installed)", stray, false, false);
  return out + table.render(colour);
}

}  // namespace tovanctl
