// processor_host.h: a host whose processors are what a test says, in place of the one it runs on.
#pragma once

#include <optional>
#include <string>

#include "platform/system/processor_facts.h"
#include "platform/system/processors.h"
#include "tests/support/scratch_home.h"

namespace test {

// As long as the object lives. It begins without any file: nothing is known but the machine and the count.
class ProcessorHost {
 public:
  explicit ProcessorHost(std::optional<std::string> machine = "x86_64", int count = 2)
      : root_(scratchFolder("processors")), machine_(std::move(machine)) {
    platform::setProcessorHostForTesting(root_.c_str(), machine_ ? machine_->c_str() : nullptr);
    platform::setProcessorCountForTesting(count);
  }
  ~ProcessorHost() {
    platform::setProcessorHostForTesting(nullptr, nullptr);
    platform::setProcessorCountForTesting(0);
  }
  ProcessorHost(const ProcessorHost&) = delete;
  ProcessorHost& operator=(const ProcessorHost&) = delete;

  // The text of /proc/cpuinfo.
  void list(const std::string& listing) const {
    makeFolders(root_ + "/proc");
    writeFile(root_ + "/proc/cpuinfo", listing);
  }
  // One file of one cpufreq policy, such as "policy0", "scaling_cur_freq".
  void clock(const std::string& policy, const std::string& file, const std::string& content) const {
    const std::string folder = root_ + "/sys/devices/system/cpu/cpufreq/" + policy;
    makeFolders(folder);
    writeFile(folder + "/" + file, content);
  }
  const std::string& root() const { return root_; }

 private:
  std::string root_;
  std::optional<std::string> machine_;
};

// One processor's block of /proc/cpuinfo on x86.
inline std::string x86Listing(int model, const std::string& brand, const std::string& megahertz) {
  return "processor\t: 0\nvendor_id\t: GenuineIntel\ncpu family\t: 6\nmodel\t\t: " + std::to_string(model) +
         "\nmodel name\t: " + brand + "\nstepping\t: 1\ncpu MHz\t\t: " + megahertz + "\nflags\t\t: fpu vme de\n\n";
}

}  // namespace test
