#include "tools/launchctl/systemd/unit_text.h"

#include <cmath>
#include <cstdio>

#include "tools/launchctl/failure.h"

namespace launchctl {
namespace {

constexpr std::size_t kLongestName = 255;  // of a unit

std::string hexadecimal(unsigned char byte) {
  char digits[5];
  std::snprintf(digits, sizeof digits, "\\x%02x", static_cast<unsigned int>(byte));
  return digits;
}

std::string withoutSpecifiers(const std::string& text) {
  std::string out;
  for (const char character : text) out += character == '%' ? "%%" : std::string(1, character);
  return out;
}

std::string seconds(double count) {
  char text[64];
  std::snprintf(text, sizeof text, "%.0fms", std::ceil(count * 1000));
  return text;
}

// A path setting has no quoting: these paths are left to the watch.
bool fitsPathSetting(const std::string& path) {
  for (const char character : path) {
    if (static_cast<unsigned char>(character) < 0x20 || character == 0x7f) return false;
  }
  return path.back() != ' ' && path.back() != '\\';
}

std::string restart(const JobDescription& job) {
  // systemd takes an end by one of these signals for a success; here only exit code 0 is one.
  static const std::string signals = "SIGHUP SIGINT SIGTERM SIGPIPE\n";
  if (job.triggered() || job.keepAlive) return "Restart=always\n";
  if (!job.successfulExit) return "Restart=no\n";
  return *job.successfulExit ? "Restart=on-success\nRestartPreventExitStatus=" + signals
                             : "Restart=on-failure\nRestartForceExitStatus=" + signals;
}

constexpr const char* kWanted = "\n[Install]\nWantedBy=default.target\n";

}  // namespace

std::string quotedWord(const std::string& text) {
  std::string out = "\"";
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (character == '"' || character == '\\') {
      out += '\\';
      out += character;
    } else if (character == '%') {
      out += "%%";
    } else if (byte < 0x20 || byte == 0x7f) {
      out += hexadecimal(byte);
    } else {
      out += character;
    }
  }
  return out + "\"";
}

std::string escapedLabel(const std::string& label) {
  std::string out;
  for (const char character : label) {
    const bool plain = (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
                       (character >= '0' && character <= '9') || character == '_' || character == '-' ||
                       character == '.';
    out += plain ? std::string(1, character) : hexadecimal(static_cast<unsigned char>(character));
  }
  return out;
}

UnitNames::UnitNames(const std::string& label) {
  const std::string job = kRecordStart + escapedLabel(label);
  service = job + ".service";
  path = job + ".path";
  watch = "tovan-watch-" + escapedLabel(label) + ".service";
  record = job + kRecordEnd;
  exit = job + ".exit";
  if (watch.size() > kLongestName) throw Failure(label + ": the label is too long for the name of a unit");
}

std::string serviceUnit(const JobToLoad& job, const UnitNames& names, const std::string& folder,
                        const std::string& host) {
  const JobDescription& description = job.description;
  const auto path = job.environment.find("PATH");
  // "simple": a job that ends at once is no failure to start it ("exec" takes it for one, depending on the moment).
  std::string unit = "[Unit]\nDescription=Launch agent " + withoutSpecifiers(description.label) +
                     "\nStartLimitIntervalSec=0\n\n[Service]\nType=simple\n";
  if (path != job.environment.end()) unit += "Environment=" + quotedWord("PATH=" + path->second) + "\n";
  // The colon: dollar signs mean nothing.
  unit += "ExecStart=:" + quotedWord(host) + " --become-job " + quotedWord(folder + "/" + names.record) + "\n";
  unit += "ExecStopPost=:" + quotedWord(host) + " --record-exit " + quotedWord(folder + "/" + names.exit) + "\n";
  unit += restart(description);
  unit += "RestartSec=" + seconds(description.throttleInterval) + "\n";
  unit += "KillMode=control-group\nKillSignal=SIGTERM\nSendSIGKILL=yes\n";
  unit += "TimeoutStopSec=" + (description.exitTimeOut > 0 ? seconds(description.exitTimeOut) : "infinity") + "\n";
  return description.startsAtLoad() ? unit + kWanted : unit;
}

// Behind the watch, so that no job runs whose trigger could go unseen.
std::string pathUnit(const JobToLoad& job, const UnitNames& names) {
  std::string unit = "[Unit]\nDescription=Trigger of the launch agent " + withoutSpecifiers(job.description.label) +
                     "\nAfter=" + names.watch + "\n\n[Path]\nUnit=" + names.service + "\nTriggerLimitIntervalSec=0\n";
  std::string paths;
  for (const PathState& state : job.description.pathStates) {
    if (state.exists && fitsPathSetting(state.path)) paths += "PathExists=" + withoutSpecifiers(state.path) + "\n";
  }
  return paths.empty() ? "" : unit + paths + kWanted;
}

std::string watchUnit(const JobToLoad& job, const UnitNames& names, const std::string& folder,
                      const std::string& host) {
  return "[Unit]\nDescription=Watch on the trigger of the launch agent " + withoutSpecifiers(job.description.label) +
         "\nStartLimitIntervalSec=0\n\n[Service]\nType=notify\nExecStart=:" + quotedWord(host) + " --watch-trigger " +
         quotedWord(names.service) + " " + quotedWord(folder + "/" + names.record) +
         "\nRestart=always\nRestartSec=1s\n" + kWanted;
}

}  // namespace launchctl
