// job_description_fuzz.cpp: arbitrary bytes as a launch agent's job description. They are refused with a reason, or
// what is read keeps the promises that both back ends of launchctl rely on: it survives the way to the host and the
// record of a unit, and no text of it becomes a line of a unit.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tools/launchctl/embedded/frame.h"
#include "tools/launchctl/failure.h"
#include "tools/launchctl/job_description.h"
#include "tools/launchctl/systemd/record.h"
#include "tools/launchctl/systemd/unit_text.h"

namespace {

using launchctl::JobDescription;
using launchctl::JobToLoad;

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "job_description_fuzz: %s\n", what);
  std::abort();
}

bool isAbsolute(const std::string& path) { return !path.empty() && path.front() == '/'; }
bool isCString(const std::string& text) { return text.find('\0') == std::string::npos; }
bool isInterval(double seconds) { return seconds >= 0 && seconds <= 1e8; }

void checkPromises(const JobDescription& job) {
  require(!job.label.empty() && job.label.size() <= 200 && job.label.find('/') == std::string::npos, "the label");
  require(std::none_of(job.label.begin(), job.label.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }),
          "a control character in the label");
  require(isAbsolute(job.program) || (!job.program.empty() && job.program.find('/') == std::string::npos),
          "the program");
  require(!job.arguments.empty() && std::all_of(job.arguments.begin(), job.arguments.end(), isCString),
          "the arguments");
  for (const auto& [name, value] : job.environment) {
    require(!name.empty() && name.find('=') == std::string::npos && isCString(name) && isCString(value), "a variable");
  }
  for (const std::string& path :
       {job.workingDirectory, job.standardInPath, job.standardOutPath, job.standardErrorPath}) {
    require(path.empty() || (isAbsolute(path) && isCString(path)), "a path");
  }
  for (const auto& state : job.pathStates) require(isAbsolute(state.path) && isCString(state.path), "a trigger");
  require(isInterval(job.exitTimeOut) && isInterval(job.throttleInterval), "an interval");
}

bool isSame(const JobDescription& left, const JobDescription& right) {
  return left.label == right.label && left.program == right.program && left.arguments == right.arguments &&
         left.environment == right.environment && left.workingDirectory == right.workingDirectory &&
         left.runAtLoad == right.runAtLoad && left.keepAlive == right.keepAlive &&
         left.successfulExit == right.successfulExit && left.pathStates.size() == right.pathStates.size() &&
         left.exitTimeOut == right.exitTimeOut && left.throttleInterval == right.throttleInterval &&
         left.standardInPath == right.standardInPath && left.standardOutPath == right.standardOutPath &&
         left.standardErrorPath == right.standardErrorPath;
}

void sendToHost(const JobDescription& job) {
  const std::string bytes = launchctl::frame(job.list);
  launchctl::FrameReader reader;
  reader.append(bytes.data(), bytes.size() / 2);
  require(!reader.next(), "half a frame");
  reader.append(bytes.data() + bytes.size() / 2, bytes.size() - bytes.size() / 2);
  const auto arrived = reader.next();
  require(arrived.has_value() && isSame(job, launchctl::describeJob(*arrived, nullptr)), "the way to the host");
}

long linesOf(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

// The settings of a unit stand on lines of their own, however the description's texts look.
void writeUnits(const JobDescription& description) {
  JobToLoad job;
  job.description = description;
  job.file = "/agents/" + description.label + ".plist";
  job.program = description.program;
  JobToLoad plain = job;
  plain.description.label = "label";
  const launchctl::UnitNames names(description.label);
  const launchctl::UnitNames plainNames("label");
  const auto units = [](const JobToLoad& one, const launchctl::UnitNames& of) {
    return linesOf(launchctl::serviceUnit(one, of, "/units", "/host")) +
           linesOf(launchctl::watchUnit(one, of, "/units", "/host"));
  };
  require(units(job, names) == units(plain, plainNames), "a label makes a line of a unit");
  const std::string paths = launchctl::pathUnit(job, names);
  const auto most = static_cast<long>(description.pathStates.size()) + 10;
  require(linesOf(paths) <= most, "a trigger makes a line of a unit");
  const launchctl::Dictionary record = launchctl::parseDictionary(launchctl::recordText(job));
  require(isSame(description, launchctl::describeJob(launchctl::dictionaryOf(record.get(), "Job"), nullptr)),
          "the record of the unit");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  JobDescription job;
  try {
    std::vector<std::string> unknownKeys;
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    job = launchctl::describeJob(launchctl::parseDictionary(bytes), &unknownKeys);
  } catch (const launchctl::Failure& failure) {
    require(*failure.what() != '\0', "a failure without words");
    return 0;
  }
  checkPromises(job);
  sendToHost(job);
  try {
    writeUnits(job);
  } catch (const launchctl::Failure&) {  // a label that is too long for the name of a unit
    require(launchctl::escapedLabel(job.label).size() > 200, "a unit is refused");
  }
  return 0;
}
