#include "tools/launchctl/job_description.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <functional>

#include "tools/launchctl/failure.h"

extern char** environ;

namespace launchctl {
namespace {

constexpr std::size_t kLongestLabel = 200;  // a label becomes a part of file names
constexpr double kLongestInterval = 1e8;    // three years, in seconds
constexpr const char* kDefaultPath = "/usr/local/bin:/usr/bin:/bin";

const char* kindName(CFTypeRef value) {
  const CFTypeID kind = CFGetTypeID(value);
  if (kind == CFStringGetTypeID()) return "a string";
  if (kind == CFBooleanGetTypeID()) return "a boolean";
  if (kind == CFNumberGetTypeID()) return "a number";
  if (kind == CFDictionaryGetTypeID()) return "a dictionary";
  if (kind == CFArrayGetTypeID()) return "an array";
  if (kind == CFDateGetTypeID()) return "a date";
  if (kind == CFDataGetTypeID()) return "data";
  return "something else";
}

[[noreturn]] void wrongType(const std::string& key, const char* wanted, CFTypeRef value) {
  throw Failure("\"" + key + "\" must be " + wanted + ", not " + kindName(value));
}

std::string readString(const std::string& key, CFTypeRef value) {
  if (CFGetTypeID(value) != CFStringGetTypeID()) wrongType(key, "a string", value);
  std::string read = text(static_cast<CFStringRef>(value));
  if (read.find('\0') != std::string::npos) throw Failure("\"" + key + "\" holds a NUL");
  return read;
}

bool readBool(const std::string& key, CFTypeRef value) {
  if (CFGetTypeID(value) != CFBooleanGetTypeID()) wrongType(key, "a boolean", value);
  return CFBooleanGetValue(static_cast<CFBooleanRef>(value)) != 0;
}

double readSeconds(const std::string& key, CFTypeRef value) {
  if (CFGetTypeID(value) != CFNumberGetTypeID()) wrongType(key, "a number of seconds", value);
  double seconds = 0;
  CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberDoubleType, &seconds);
  if (!(seconds >= 0) || seconds > kLongestInterval) {  // the first also refuses what is not a number
    throw Failure("\"" + key + "\" must be a number of seconds from 0 to 100000000");
  }
  return seconds;
}

CFDictionaryRef readDictionary(const std::string& key, CFTypeRef value) {
  if (CFGetTypeID(value) != CFDictionaryGetTypeID()) wrongType(key, "a dictionary", value);
  return static_cast<CFDictionaryRef>(value);
}

std::string readPath(const std::string& key, CFTypeRef value) {
  std::string path = readString(key, value);
  if (path.empty() || path.front() != '/')
    throw Failure("\"" + key + "\" must be an absolute path, not \"" + path + "\"");
  return path;
}

std::vector<std::string> readArguments(const std::string& key, CFTypeRef value) {
  if (CFGetTypeID(value) != CFArrayGetTypeID()) wrongType(key, "an array of strings", value);
  const auto array = static_cast<CFArrayRef>(value);
  std::vector<std::string> arguments;
  for (CFIndex index = 0; index < CFArrayGetCount(array); ++index) {
    arguments.push_back(readString(key + "[" + std::to_string(index) + "]", CFArrayGetValueAtIndex(array, index)));
  }
  return arguments;
}

std::string readVariable(const std::string& key, const std::string& name, CFTypeRef value) {
  if (name.empty() || name.find('=') != std::string::npos || name.find('\0') != std::string::npos) {
    throw Failure("\"" + key + "\" holds \"" + name + "\", which is no name of a variable");
  }
  return readString(key + "." + name, value);
}

std::map<std::string, std::string> readEnvironment(const std::string& key, CFTypeRef value) {
  std::map<std::string, std::string> variables;
  for (const auto& [name, content] : pairsOf(readDictionary(key, value))) {
    variables[name] = readVariable(key, name, content);
  }
  return variables;
}

void readKeepAlive(JobDescription& job, CFTypeRef value, std::vector<std::string>* unknownKeys) {
  if (CFGetTypeID(value) == CFBooleanGetTypeID()) {
    job.keepAlive = readBool("KeepAlive", value);
    return;
  }
  if (CFGetTypeID(value) != CFDictionaryGetTypeID()) wrongType("KeepAlive", "a boolean or a dictionary", value);
  for (const auto& [key, condition] : pairsOf(static_cast<CFDictionaryRef>(value))) {
    if (key == "SuccessfulExit") {
      job.successfulExit = readBool("KeepAlive.SuccessfulExit", condition);
    } else if (key == "PathState") {
      for (const auto& [path, exists] : pairsOf(readDictionary("KeepAlive.PathState", condition))) {
        if (path.empty() || path.front() != '/' || path.find('\0') != std::string::npos) {
          throw Failure("\"KeepAlive.PathState\" must hold absolute paths, not \"" + path + "\"");
        }
        job.pathStates.push_back({path, readBool("KeepAlive.PathState." + path, exists)});
      }
    } else if (unknownKeys != nullptr) {
      unknownKeys->push_back("KeepAlive." + key);
    }
  }
}

std::string readLabel(const std::string& key, CFTypeRef value) {
  std::string label = readString(key, value);
  if (label.empty()) throw Failure("\"Label\" is empty");
  if (label.size() > kLongestLabel) throw Failure("\"Label\" is longer than 200 bytes");
  for (const char character : label) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7f || byte == '/') throw Failure("\"Label\" holds a slash or a control character");
  }
  return label;
}

using Reader = std::function<void(JobDescription&, const std::string&, CFTypeRef)>;

// Every key of a description but "KeepAlive", with what reading it does.
const std::map<std::string, Reader>& readers() {
  static const std::map<std::string, Reader> table = {
      {"Label",
       [](JobDescription& job, const std::string& key, CFTypeRef value) { job.label = readLabel(key, value); }},
      {"Program",
       [](JobDescription& job, const std::string& key, CFTypeRef value) { job.program = readString(key, value); }},
      {"ProgramArguments",
       [](JobDescription& job, const std::string& key, CFTypeRef value) { job.arguments = readArguments(key, value); }},
      {"EnvironmentVariables", [](JobDescription& job, const std::string& key,
                                  CFTypeRef value) { job.environment = readEnvironment(key, value); }},
      {"WorkingDirectory", [](JobDescription& job, const std::string& key,
                              CFTypeRef value) { job.workingDirectory = readPath(key, value); }},
      {"RunAtLoad",
       [](JobDescription& job, const std::string& key, CFTypeRef value) { job.runAtLoad = readBool(key, value); }},
      {"ExitTimeOut",
       [](JobDescription& job, const std::string& key, CFTypeRef value) { job.exitTimeOut = readSeconds(key, value); }},
      {"ThrottleInterval", [](JobDescription& job, const std::string& key,
                              CFTypeRef value) { job.throttleInterval = readSeconds(key, value); }},
      {"StandardInPath",
       [](JobDescription& job, const std::string& key, CFTypeRef value) { job.standardInPath = readPath(key, value); }},
      {"StandardOutPath", [](JobDescription& job, const std::string& key,
                             CFTypeRef value) { job.standardOutPath = readPath(key, value); }},
      {"StandardErrorPath", [](JobDescription& job, const std::string& key,
                               CFTypeRef value) { job.standardErrorPath = readPath(key, value); }},
  };
  return table;
}

void checkProgram(JobDescription& job) {
  if (job.arguments.empty() && job.program.empty()) {
    throw Failure("neither \"Program\" nor \"ProgramArguments\" names a program");
  }
  if (job.arguments.empty()) job.arguments.push_back(job.program);
  const char* const key = job.program.empty() ? "ProgramArguments[0]" : "Program";
  if (job.program.empty()) job.program = job.arguments.front();
  if (job.program.empty()) throw Failure(std::string("\"") + key + "\" is empty");
  if (job.program.front() != '/' && job.program.find('/') != std::string::npos) {
    throw Failure(std::string("\"") + key + "\" must be an absolute path or a plain name, not \"" + job.program + "\"");
  }
}

bool isProgram(const std::string& path) {
  struct stat facts {};
  return ::stat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

bool beginsWith(const std::string& text, const char* start) { return text.rfind(start, 0) == 0; }

}  // namespace

JobDescription describeJob(const Dictionary& list, std::vector<std::string>* unknownKeys) {
  JobDescription job;
  job.list = list;
  for (const auto& [key, value] : pairsOf(list.get())) {
    const auto reader = readers().find(key);
    if (reader != readers().end()) {
      reader->second(job, key, value);
    } else if (key == "KeepAlive") {
      readKeepAlive(job, value, unknownKeys);
    } else if (unknownKeys != nullptr) {
      unknownKeys->push_back(key);
    }
  }
  if (job.label.empty()) throw Failure("\"Label\" is missing");
  checkProgram(job);
  return job;
}

std::string findProgram(const std::string& program, const std::string& searchPath) {
  if (program.front() == '/') return program;
  std::size_t start = 0;
  while (start <= searchPath.size()) {
    std::size_t end = searchPath.find(':', start);
    if (end == std::string::npos) end = searchPath.size();
    const std::string folder = searchPath.substr(start, end - start);
    if (!folder.empty() && folder.front() == '/') {
      std::string path = folder;
      path.append("/").append(program);
      if (isProgram(path)) return path;
    }
    start = end + 1;
  }
  throw Failure("the program \"" + program + "\" is in none of the folders " + searchPath);
}

std::map<std::string, std::string> loaderEnvironment() {
  static constexpr const char* kNames[] = {"PATH",   "HOME", "USER", "LOGNAME",  "SHELL",
                                           "TMPDIR", "TZ",   "LANG", "LANGUAGE", "DBUS_SESSION_BUS_ADDRESS"};
  static constexpr const char* kStarts[] = {"LC_", "XDG_", "TOVAN_"};
  std::map<std::string, std::string> variables = {{"PATH", kDefaultPath}};
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string line = *entry;
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    const std::string name = line.substr(0, equals);
    bool passed = false;
    for (const char* const wanted : kNames) passed = passed || name == wanted;
    for (const char* const start : kStarts) passed = passed || beginsWith(name, start);
    // What is not UTF-8 cannot be handed on.
    if (!passed) continue;
    const plinth::CSharedCFRef<CFStringRef> value(
        CFStringCreateWithCString(nullptr, line.c_str() + equals + 1, kCFStringEncodingUTF8));
    if (value) variables[name] = line.substr(equals + 1);
  }
  return variables;
}

}  // namespace launchctl
