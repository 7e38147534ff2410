#include <gtest/gtest.h>

#include <thread>

#include "ZYNSysTimer.h"

TEST(ZYNSysTimerTest, ConvertSplitsMicrosecondsIntoFiveParts) {
  struct Case {
    long long microseconds;
    unsigned int parts[5];
  };
  Case const cases[] = {
      {3661001001LL, {1, 1, 1, 1, 1}},
      {0, {0, 0, 0, 0, 0}},
      {999, {0, 0, 0, 0, 999}},
      {90061002003LL, {25, 1, 1, 2, 3}},
  };
  for (Case const& c : cases) {
    unsigned int parts[5] = {9, 9, 9, 9, 9};
    ZYNSysTimerConvert(c.microseconds, parts);
    for (int i = 0; i < 5; i++) EXPECT_EQ(parts[i], c.parts[i]) << c.microseconds << " part " << i;
  }
  ZYNSysTimerConvert(1, nullptr);
}

TEST(ZYNSysTimerTest, GetTimeMeasuresSinceThePreviousCallEvenWithoutOutputs) {
  ZYNSysTimer timer;
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  long long elapsed = -1;
  long long cpu = -1;
  timer.GetTime(&elapsed, &cpu);
  EXPECT_GE(elapsed, 19000);
  EXPECT_GE(cpu, 0);

  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  timer.GetTime(nullptr, nullptr);
  timer.GetTime(&elapsed, nullptr);
  EXPECT_LT(elapsed, 15000) << "the call without outputs moved the reference";
}
