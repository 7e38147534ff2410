#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

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

// Waiters blocked at the broadcast are let go (the first without a limit, the second
// with one); then a later wait shows whether the point stayed signalled, and a reset
// always clears it.
TEST(QRTWaitingPointTest, BroadcastsLimitsAndResetsFollowTheKindOfPoint) {
  struct Case {
    char const* name;
    int autoReset, state, waiters, laterMs, later;
  } const cases[] = {
      {"signalled from the start", 0, 0, 0, -1, 0},
      {"unsignalled, no limit to wait", 0, -1, 0, 0, -1},
      {"unsignalled, waits out its limit", 0, -1, 0, 30, -1},
      {"broadcast without auto reset stays signalled", 0, -1, 1, -1, 0},
      {"auto reset frees only those waiting", 1, -1, 2, 20, -1},
  };
  for (Case const& c : cases) {
    QRTWaitingPoint point(c.autoReset, c.state);
    std::vector<std::unique_ptr<Waiter>> waiters;
    for (int i = 0; i < c.waiters; ++i) {
      waiters.emplace_back(new Waiter(&point, i == 0 ? -1 : 5000));
      ASSERT_TRUE(waiters.back()->BlockedWithin(2000)) << c.name;
    }
    if (c.waiters > 0) point.Broadcast();
    for (auto& waiter : waiters) {
      waiter->thread.Join();
      EXPECT_EQ(waiter->result, 0) << c.name;
      EXPECT_EQ(waiter->thread.GetStatus() & 8, 0) << c.name << ": no longer blocked";
    }
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(point.Wait(c.laterMs), c.later) << c.name;
    if (c.later != 0) {
      EXPECT_GE(MillisSince(start), c.laterMs - 5) << c.name;
      EXPECT_LT(MillisSince(start), c.laterMs + 500) << c.name;
    }
    point.Reset();
    EXPECT_EQ(point.Wait(0), -1) << c.name;
  }
}
