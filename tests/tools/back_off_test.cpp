// The delays between the starts of something that keeps ending.
#include "tools/mervaned/back_off.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using mervaned::BackOff;
using testing::ElementsAre;

std::vector<double> delays(BackOff& backOff, int count, double ranFor = 0) {
  std::vector<double> seconds;
  for (int i = 0; i < count; ++i) seconds.push_back(backOff.afterRunOf(ranFor));
  return seconds;
}

TEST(BackOffTest, DelaysDoubleUpToTheLongest) {
  BackOff backOff(1, 60);
  EXPECT_THAT(delays(backOff, 9), ElementsAre(1, 2, 4, 8, 16, 32, 60, 60, 60));
}

TEST(BackOffTest, WhatRanAsLongAsTheLongestDelayBeginsAnew) {
  BackOff backOff(1, 60);
  EXPECT_THAT(delays(backOff, 3, 59.9), ElementsAre(1, 2, 4));
  EXPECT_THAT(delays(backOff, 3, 60), ElementsAre(1, 1, 1));
  EXPECT_THAT(delays(backOff, 2), ElementsAre(2, 4));
}

TEST(BackOffTest, ResettingBeginsAnew) {
  BackOff backOff(1, 60);
  delays(backOff, 5);
  backOff.reset();
  EXPECT_THAT(delays(backOff, 2), ElementsAre(1, 2));
}

TEST(BackOffTest, ALimitBelowTheFirstDelayIsThatDelay) {
  BackOff backOff(5, 1);
  EXPECT_THAT(delays(backOff, 3), ElementsAre(5, 5, 5));
}

}  // namespace
