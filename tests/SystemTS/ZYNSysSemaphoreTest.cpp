#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

#include "ZYNResult.h"
#include "ZYNSysSemaphore.h"

namespace {

typedef std::unique_ptr<ZYNSysSemaphore> SemPtr;

SemPtr Make(int maxCount, int initialCount, char kind) {
  return SemPtr(ZYNSysSemaphore::ZYNSysCreateSemaphore(maxCount, initialCount, kind));
}

int MaxOf(ZYNSysSemaphore& semaphore) {
  int maxCount = -5;
  semaphore.GetMaxCount(maxCount);
  return maxCount;
}

int CountOf(ZYNSysSemaphore& semaphore) {
  int count = -5;
  semaphore.GetCurrentCount(count);
  return count;
}

}  // namespace

TEST(ZYNSysSemaphoreTest, FactoryRefusesBadCountsAndKinds) {
  struct Case {
    int maxCount;
    int initialCount;
    char kind;
    bool made;
    int expectedMax;
  };
  Case const cases[] = {
      {2, 3, 0, false, 0}, {-1, 3, 0, true, 0x7FFFFFFF}, {-2, 0, 0, false, 0}, {5, -1, 0, false, 0},
      {5, 2, 2, false, 0}, {0, 0, 0, true, 0},           {5, 2, 1, true, 5},   {-1, 0, 1, true, 0x7FFFFFFF},
  };
  for (Case const& c : cases) {
    SemPtr semaphore = Make(c.maxCount, c.initialCount, c.kind);
    ASSERT_EQ(semaphore != nullptr, c.made) << c.maxCount << "," << c.initialCount << "," << int(c.kind);
    if (semaphore) {
      EXPECT_EQ(MaxOf(*semaphore), c.expectedMax);
    }
  }
}

// Both kinds: a signal at the maximum changes nothing, and a consumer on another thread
// takes every signal. A fixed semaphore counts a limit under a second in microseconds.
TEST(ZYNSysSemaphoreTest, BothKindsCountSignalsWithinTheirMaximum) {
  for (char kind : {0, 1}) {
    SemPtr one = Make(1, 1, kind);
    EXPECT_EQ(one->Signal(), ZYN_E_FAIL) << int(kind);
    EXPECT_EQ(one->Wait(), 0);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(one->TimedWait(kind == 0 ? 900 : 0), 1) << "one count, taken once";
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_EQ(one->Signal(), 0);
    EXPECT_EQ(one->TimedWait(0), 0);

    SemPtr unlimited = Make(-1, 0, kind);
    std::thread consumer([&] {
      for (int i = 0; i < 200; i++) EXPECT_EQ(unlimited->Wait(), 0);
    });
    for (int i = 0; i < 200; i++) EXPECT_EQ(unlimited->Signal(), 0);
    consumer.join();
    EXPECT_EQ(unlimited->TimedWait(0), 1) << int(kind);
  }
}

TEST(ZYNSysSemaphoreTest, VariableCountsChangeWithinTheirLimits) {
  SemPtr semaphore = Make(3, 1, 1);
  struct Step {
    bool increase;
    int delta;
    int count;
    int expected;
    int maxAfter;
    int countAfter;
  };
  Step const steps[] = {
      {true, 0, 0, ZYN_E_FAIL, 3, 1},   {true, 1, 2, ZYN_E_FAIL, 3, 1},          {true, 2, 1, 0, 5, 2},
      {false, 0, 0, ZYN_E_FAIL, 5, 2},  {false, -3, 0, ZYN_E_FAIL, 5, 2},        {false, -2, 0, 0, 3, 0},
      {false, -3, 0, ZYN_E_FAIL, 3, 0}, {true, 0x7FFFFFFF, 0, ZYN_E_FAIL, 3, 0},
  };
  for (Step const& s : steps) {
    int result = s.increase ? semaphore->IncreaseCount(s.delta, s.count) : semaphore->DecreaseCount(s.delta);
    EXPECT_EQ(result, s.expected) << s.increase << " " << s.delta << " " << s.count;
    EXPECT_EQ(MaxOf(*semaphore), s.maxAfter);
    EXPECT_EQ(CountOf(*semaphore), s.countAfter);
  }
  SemPtr fixed = Make(3, 1, 0);
  EXPECT_EQ(fixed->IncreaseCount(1, 1), ZYN_E_NOTIMPL);
  EXPECT_EQ(fixed->DecreaseCount(-1), ZYN_E_NOTIMPL);
  EXPECT_EQ(CountOf(*fixed), -5);
}

TEST(ZYNSysSemaphoreTest, RaisingTheCountReleasesAWaiter) {
  SemPtr semaphore = Make(1, 0, 1);
  int result = -2;
  std::thread waiter([&] { result = semaphore->Wait(); });
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(semaphore->IncreaseCount(1, 1), 0);
  waiter.join();
  EXPECT_EQ(result, 0);
  EXPECT_EQ(CountOf(*semaphore), 0);
}
