#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "QRTThreads.h"
#include "QRTWaitingPoint.h"

namespace {

long long MillisSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
}

// A thread object whose function waits on a point, with or without a limit.
struct Waiter {
  QRTWaitingPoint* point;
  int timeoutMs;
  int result = -2;
  QRTThreads thread{"waiter", this, 1, 0, 0};

  Waiter(QRTWaitingPoint* p, int t) : point(p), timeoutMs(t) {
    thread.SetFunction([](void* self) {
      Waiter* waiter = static_cast<Waiter*>(self);
      waiter->result = waiter->point->Wait(waiter->timeoutMs);
      return 0;
    });
    thread.Run(0);
  }

  // The blocked bit is set inside the point's own lock, before the thread sleeps, so a
  // broadcast that follows it counts this waiter.
  bool BlockedWithin(int millis) {
    auto start = std::chrono::steady_clock::now();
    while ((thread.GetStatus() & 8) == 0) {
      if (MillisSince(start) > millis) return false;
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
  }
};

}  // namespace

TEST(QRTWaitingPointTest, SignalledPointDoesNotBlockUntilReset) {
  QRTWaitingPoint point(0, 0);
  EXPECT_EQ(point.Wait(-1), 0);
  EXPECT_EQ(point.Wait(0), 0);
  point.Reset();
  EXPECT_EQ(point.Wait(0), -1);
}

TEST(QRTWaitingPointTest, LimitedWaitTimesOutAfterItsLimit) {
  struct Case {
    int timeoutMs;
    long long atLeastMs;
  };
  Case const cases[] = {{0, 0}, {30, 25}};
  for (Case const& c : cases) {
    QRTWaitingPoint point(0, -1);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(point.Wait(c.timeoutMs), -1) << c.timeoutMs;
    long long took = MillisSince(start);
    EXPECT_GE(took, c.atLeastMs) << c.timeoutMs;
    EXPECT_LT(took, c.atLeastMs + 500) << c.timeoutMs;
  }
}

TEST(QRTWaitingPointTest, BroadcastWithoutAutoResetStaysSignalled) {
  QRTWaitingPoint point(0, -1);
  Waiter waiter(&point, -1);
  ASSERT_TRUE(waiter.BlockedWithin(2000));
  point.Broadcast();
  waiter.thread.Join();
  EXPECT_EQ(waiter.result, 0);
  EXPECT_EQ(point.Wait(0), 0);
  EXPECT_EQ(point.Wait(-1), 0);
  point.Reset();
  EXPECT_EQ(point.Wait(0), -1);
}

TEST(QRTWaitingPointTest, AutoResetLetsGoOnlyThoseWaitingAtTheBroadcast) {
  QRTWaitingPoint point(1, -1);
  Waiter first(&point, -1);
  Waiter second(&point, 5000);
  ASSERT_TRUE(first.BlockedWithin(2000));
  ASSERT_TRUE(second.BlockedWithin(2000));
  point.Broadcast();
  first.thread.Join();
  second.thread.Join();
  EXPECT_EQ(first.result, 0);
  EXPECT_EQ(second.result, 0);
  EXPECT_EQ(second.thread.GetStatus() & 8, 0) << "no longer blocked";
  EXPECT_EQ(point.Wait(20), -1);
}
