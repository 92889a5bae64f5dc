#include "platform/system/processors.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

namespace {

// Counts "0-3,5" in the kernel's own list.
int listedProcessors() {
  std::ifstream file("/sys/devices/system/cpu/online");
  int count = 0;
  for (std::string range; std::getline(file, range, ',');) {
    int first = 0;
    int last = 0;
    char dash = 0;
    std::istringstream text(range);
    text >> first;
    last = text >> dash >> last ? last : first;
    count += last - first + 1;
  }
  return count;
}

TEST(ProcessorsTest, AreThoseOnLine) {
  const int count = platform::processorCount();
  EXPECT_GE(count, 1);
  const int listed = listedProcessors();
  EXPECT_EQ(count, listed > 0 ? listed : static_cast<int>(::sysconf(_SC_NPROCESSORS_ONLN)));
}

TEST(ProcessorsTest, AreCountedWhateverThisProcessMayUse) {
  const int before = platform::processorCount();
  cpu_set_t allowed;
  ASSERT_EQ(::sched_getaffinity(0, sizeof allowed, &allowed), 0);
  cpu_set_t one;
  CPU_ZERO(&one);
  for (unsigned processor = 0; processor < CPU_SETSIZE; ++processor) {
    if (CPU_ISSET(processor, &allowed)) {
      CPU_SET(processor, &one);
      break;
    }
  }
  ASSERT_EQ(::sched_setaffinity(0, sizeof one, &one), 0);
  EXPECT_EQ(platform::processorCount(), before);
  ASSERT_EQ(::sched_setaffinity(0, sizeof allowed, &allowed), 0);
}

TEST(ProcessorsTest, CanBeSetForTests) {
  const int before = platform::processorCount();
  platform::setProcessorCountForTesting(8);
  EXPECT_EQ(platform::processorCount(), 8);
  platform::setProcessorCountForTesting(0);
  EXPECT_EQ(platform::processorCount(), before);
}

TEST(ProcessorsTest, AreOneAtLeastWhereTheSystemDoesNotTell) {
  EXPECT_EQ(platform::knownProcessorCount(), std::optional<int>(platform::processorCount()));
  platform::setProcessorCountForTesting(-1);
  EXPECT_EQ(platform::processorCount(), 1);
  EXPECT_FALSE(platform::knownProcessorCount().has_value());
  platform::setProcessorCountForTesting(0);
}

}  // namespace
