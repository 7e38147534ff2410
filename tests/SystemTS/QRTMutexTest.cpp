#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "QRTMutex.h"
#include "QRTResourceLock.h"
#include "QRTSysCallOnFirstThread.h"
#include "QRTSysMTGlobalMutex.h"
#include "ZYNResult.h"

namespace {

void RunThreads(int count, std::function<void(int)> const& body) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; i++) threads.emplace_back(body, i);
  for (std::thread& thread : threads) thread.join();
}

// TryLock from another thread: 0 when it got the lock (and gave it back), 1 otherwise.
int TryLockElsewhere(QRTMutex& mutex) {
  int result = -1;
  std::thread([&] {
    result = mutex.TryLock();
    if (result == 0) mutex.Unlock();
  }).join();
  return result;
}

}  // namespace

TEST(QRTMutexTest, MutualExclusionHoldsUnderContentionForEveryKind) {
  int const kinds[][3] = {{0, 0, 0}, {0, 1, 0}, {0, 1, 1}};  // plain, recursive, deferred
  for (auto const& kind : kinds) {
    QRTMutex mutex(kind[0], kind[1], kind[2]);
    long counter = 0;  // deliberately plain: only the mutex protects it
    RunThreads(4, [&](int) {
      for (int i = 0; i < 5000; i++) {
        mutex.Lock();
        counter++;
        mutex.Unlock();
      }
    });
    EXPECT_EQ(counter, 20000) << kind[1] << kind[2];
  }
}

// A deferred mutex gets its body from the first TryLock or Lock, and that body is
// recursive whatever the constructor was told.
TEST(QRTMutexTest, EachConstructionLocksAsItSays) {
  struct Case {
    char const* name;
    int lockNow, recursive, deferred;
    bool heldAtStart;
    bool reentrant;
  };
  Case const cases[] = {
      {"plain", 0, 0, 0, false, false},
      {"recursive", 0, 1, 0, false, true},
      {"locked now", 1, 0, 0, true, false},
      {"deferred", 0, 0, 1, false, true},
  };
  for (Case const& c : cases) {
    QRTMutex mutex(c.lockNow, c.recursive, c.deferred);
    if (c.deferred != 0) {
      EXPECT_EQ(mutex.Unlock(), 0) << "nothing to unlock yet";
    }
    EXPECT_EQ(TryLockElsewhere(mutex), c.heldAtStart ? 1 : 0) << c.name;
    if (c.heldAtStart) mutex.Unlock();
    EXPECT_EQ(mutex.Lock(), 0);
    EXPECT_EQ(mutex.TryLock(), c.reentrant ? 0 : 1) << c.name;
    if (c.reentrant) mutex.Unlock();
    EXPECT_EQ(TryLockElsewhere(mutex), 1) << c.name;
    mutex.Unlock();
    EXPECT_EQ(TryLockElsewhere(mutex), 0) << c.name;
  }
}

TEST(QRTMutexTest, GlobalMutexCommandsAndRefusals) {
  struct Case {
    int command;
    char const* name;
    int flag;
    int expected;
  };
  Case const cases[] = {
      {QRTSysMTGlobalMutexLock, nullptr, 0, 1},     {QRTSysMTGlobalMutexLock, nullptr, 0, 1},
      {QRTSysMTGlobalMutexUnlock, nullptr, 0, 0},   {QRTSysMTGlobalMutexUnlock, nullptr, 0, 0},
      {QRTSysMTGlobalMutexLock, "named", 0, -1},    {QRTSysMTGlobalMutexLock, nullptr, 1, -1},
      {QRTSysMTGlobalMutexDestroy, "named", 0, -1}, {5, nullptr, 0, -1},
  };
  for (Case const& c : cases) {
    EXPECT_EQ(QRTSysMTGlobalMutex(c.command, c.name, c.flag), c.expected) << c.command;
  }
  // Nothing above may have left it held.
  EXPECT_EQ(TryLockElsewhere(*GetMyGlobalMutex()), 0);
  ASSERT_EQ(QRTSysMTGlobalMutex(QRTSysMTGlobalMutexLock, nullptr, 0), 1);
  EXPECT_EQ(TryLockElsewhere(*GetMyGlobalMutex()), 1);
  QRTSysMTGlobalMutex(QRTSysMTGlobalMutexUnlock, nullptr, 0);
}

TEST(QRTMutexTest, RacingCreationInModeOneMakesOneObject) {
  QRTMutex* mutex = nullptr;
  QRTResourceLock* lock = nullptr;
  std::vector<QRTMutex*> seenMutex(4);
  std::vector<QRTResourceLock*> seenLock(4);
  RunThreads(4, [&](int i) {
    ZYNCreateMutex(mutex, 1);
    ZYNCreateResourceLock(lock, 1);
    seenMutex[i] = mutex;
    seenLock[i] = lock;
  });
  for (int i = 0; i < 4; i++) {
    EXPECT_EQ(seenMutex[i], mutex);
    EXPECT_EQ(seenLock[i], lock);
  }
  ASSERT_NE(mutex, nullptr);
  ASSERT_NE(lock, nullptr);
  delete mutex;
  delete lock;

  QRTMutex* untouched = nullptr;
  ZYNCreateMutex(untouched, 2);
  EXPECT_EQ(untouched, nullptr);
  ZYNCreateMutex(untouched, 0);
  EXPECT_NE(untouched, nullptr);
  delete untouched;
}

namespace {
std::vector<int> S_firstThreadCalls;
template <int N>
void RecordFirstThreadCall() {
  S_firstThreadCalls.push_back(N);
}
}  // namespace

// Whether or not a thread object was made earlier in this process, the functions run
// once each and in order of registration.
TEST(QRTMutexTest, FirstThreadFunctionsRunInOrderAndLateOnesAtOnce) {
  S_firstThreadCalls.clear();
  EXPECT_EQ(QRTSysCallOnFirstThread(nullptr), ZYN_E_FAIL);
  void (*const functions[])() = {RecordFirstThreadCall<1>,  RecordFirstThreadCall<2>, RecordFirstThreadCall<3>,
                                 RecordFirstThreadCall<4>,  RecordFirstThreadCall<5>, RecordFirstThreadCall<6>,
                                 RecordFirstThreadCall<7>,  RecordFirstThreadCall<8>, RecordFirstThreadCall<9>,
                                 RecordFirstThreadCall<10>, RecordFirstThreadCall<11>};
  for (auto function : functions) EXPECT_EQ(QRTSysCallOnFirstThread(function), 0);
  QRTSysCallRegisteredFunctionsOnFirstThread();
  EXPECT_EQ(S_firstThreadCalls, (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
  EXPECT_EQ(QRTSysCallOnFirstThread(RecordFirstThreadCall<12>), 0);
  EXPECT_EQ(S_firstThreadCalls.back(), 12);
}

TEST(QRTResourceLockTest, WriterWaitsForTheLastOfTwoReaders) {
  QRTResourceLock lock(0);
  std::atomic<int> stage{0};
  std::atomic<bool> written{false};
  std::thread reader([&] {
    lock.ReadLock();
    stage = 1;
    while (stage != 2) std::this_thread::yield();
    lock.ReadUnlock();
  });
  while (stage != 1) std::this_thread::yield();
  lock.ReadLock();  // a second reader while the first holds it
  std::thread writer([&] {
    lock.WriteLock();
    written = true;
    lock.WriteUnlock();
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(written);
  lock.ReadUnlock();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(written);
  stage = 2;
  reader.join();
  writer.join();
  EXPECT_TRUE(written);
}

TEST(QRTResourceLockTest, ReadersNeverSeeAHalfWrittenPair) {
  QRTResourceLock lock(0);
  long first = 0;
  long second = 0;
  std::atomic<int> torn{0};
  RunThreads(4, [&](int i) {
    for (int round = 0; round < 300; round++) {
      if (i < 2) {
        lock.WriteLock();
        first++;
        second++;
        lock.WriteUnlock();
      } else {
        lock.ReadLock();
        if (first != second) torn++;
        lock.ReadUnlock();
      }
    }
  });
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(first, 600);
}

TEST(QRTResourceLockTest, WriterTakesFurtherLocksOnTheSameLock) {
  QRTResourceLock lock(0);
  lock.WriteLock();
  lock.WriteLock();
  lock.ReadLock();
  lock.ReadUnlock();
  lock.WriteUnlock();
  lock.WriteUnlock();
  std::thread([&] {
    lock.WriteLock();
    lock.WriteUnlock();
  }).join();
}
