#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "QRTListThreads.h"
#include "QRTSysChildProcess.h"
#include "QRTSysUsableCpus.h"
#include "QRTThreads.h"
#include "QRTWaitingPoint.h"
#include "ZYNSysContext.h"

namespace {

const int kCreated = 1, kStartRequested = 2, kRunning = 4, kEnded = 16, kJoinable = 32;

int ReturnArgument(void* argument) { return static_cast<int>(reinterpret_cast<intptr_t>(argument)); }

// Blocks in a cancellation point until cancelled.
int SleepForever(void*) {
  for (;;) pause();
  return 0;
}

bool RunningWithin(QRTThreads& thread, int millis) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(millis);
  while (!thread.IsRunning()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  return true;
}

// The threads of this process, as the system lists them.
int TaskCount() {
  int count = 0;
  for (auto const& entry : std::filesystem::directory_iterator("/proc/self/task")) count += entry.exists() ? 1 : 0;
  return count;
}

}  // namespace

// A detached thread is joined through its end point; a second join returns at once.
TEST(QRTThreadsTest, ThreadRunsItsFunctionAndKeepsItsCodeJoinableOrNot) {
  for (int joinable : {1, 0}) {
    const int tasks = TaskCount();
    QRTThreads thread(joinable ? "worker" : nullptr, reinterpret_cast<void*>(42), joinable, 0, 0);
    EXPECT_EQ(thread.GetStatus(), kCreated | (joinable ? kJoinable : 0));
    EXPECT_EQ(thread.GetThreadReturnCode(), 1);
    thread.SetFunction(ReturnArgument);
    EXPECT_EQ(thread.Run(0), 0);
    EXPECT_EQ(thread.Join(), 0);
    EXPECT_EQ(thread.GetThreadReturnCode(), 42) << joinable;
    EXPECT_EQ(thread.GetStatus() & (kRunning | kEnded | kStartRequested), kEnded) << joinable;
    EXPECT_EQ(thread.Join(), 0);
    // A detached thread's end point is signalled before it has freed its storage: let it
    // finish, or leak detection at exit finds that storage in flight.
    for (int i = 0; i < 2000 && TaskCount() > tasks; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

TEST(QRTThreadsTest, RunOnARunningThreadStartsNothing) {
  struct Gate {
    QRTWaitingPoint open{0, -1};
    std::atomic<int> starts{0};
  } gate;
  QRTThreads thread("gated", &gate, 1, 0, 0);
  thread.SetFunction([](void* argument) {
    Gate* g = static_cast<Gate*>(argument);
    g->starts++;
    g->open.Wait(-1);
    return 3;
  });
  thread.Run(0);
  ASSERT_TRUE(RunningWithin(thread, 2000));
  EXPECT_EQ(thread.Run(0), 1);
  EXPECT_EQ(thread.GetThreadReturnCode(), 1) << "still running";
  gate.open.Broadcast();
  thread.Join();
  EXPECT_EQ(gate.starts, 1);
  EXPECT_EQ(thread.GetThreadReturnCode(), 3);
}

TEST(QRTThreadsTest, KillAndEndFromOutsideCancelABlockedThread) {
  struct Case {
    bool kill;
    int expectedCode;
  };
  Case const cases[] = {{true, 1}, {false, 9}};
  for (Case const& c : cases) {
    QRTThreads thread("sleeper", nullptr, 1, 0, 0);
    thread.SetFunction(SleepForever);
    thread.Run(0);
    ASSERT_TRUE(RunningWithin(thread, 2000));
    if (c.kill) {
      thread.Kill(5);
    } else {
      thread.End(9);
    }
    EXPECT_EQ(thread.Join(), 0);
    EXPECT_EQ(thread.GetStatus() & (kRunning | kEnded), kEnded);
    EXPECT_EQ(thread.GetThreadReturnCode(), c.expectedCode) << (c.kill ? "Kill" : "End");
  }
}

namespace {
class Counting : public QRTThreads {
 public:
  Counting() : QRTThreads("counting", nullptr, 1, 0, 0) {}
  int Begin(void*) override {
    seenSelf = GetCurrentThread() == this;
    seenContext = ZYNSysContextGetCurrentContext();
    seenInList = ListOfThreads.FindThread(GetCurrentThreadId()) == this;
    return 11;
  }
  bool seenSelf = false;
  bool seenInList = false;
  void* seenContext = nullptr;
};
int S_root = 0;
int S_context = 0;
}  // namespace

TEST(QRTThreadsTest, SubclassBeginSeesItsObjectListEntryAndInheritedContext) {
  EXPECT_EQ(ZYNSysContextInitialize(), -1);
  EXPECT_EQ(ZYNSysContextFinalize(), -1);
  ASSERT_EQ(ZYNSysContextSetCurrentContext(&S_root), 0);
  ASSERT_EQ(ZYNSysContextSetCurrentContext(&S_context), 0);
  Counting* thread = new Counting();
  ZYNSysContextSetCurrentContext(nullptr);
  EXPECT_EQ(ZYNSysContextGetCurrentContext(), &S_root);
  thread->Run(0);
  thread->Join();
  EXPECT_TRUE(thread->seenSelf);
  EXPECT_TRUE(thread->seenInList);
  EXPECT_EQ(thread->seenContext, &S_context);
  EXPECT_EQ(thread->GetThreadReturnCode(), 11);
  pthread_t id = thread->GetThreadId();
  delete thread;
  EXPECT_EQ(ListOfThreads.FindThread(id), nullptr);
  // The first context ever set stays the root for threads that have none.
  EXPECT_EQ(ZYNSysContextGetRootContext(), &S_root);
}

TEST(QRTThreadsTest, MainThreadObjectStandsForTheFirstThread) {
  QRTThreads* main = QRTThreads::GetMainThread();
  ASSERT_NE(main, nullptr);
  EXPECT_EQ(main, QRTThreads::GetMainThread());
  EXPECT_EQ(main->IsRunning(), 1);
  EXPECT_EQ(QRTThreads::GetCurrentThread(), main);
  EXPECT_TRUE(QRTThreads::CompareThreadId(main->GetThreadId(), QRTThreads::GetCurrentThreadId()));
  QRTThreads* otherSeen = main;
  std::thread([&] { otherSeen = QRTThreads::GetCurrentThread(); }).join();
  EXPECT_EQ(otherSeen, nullptr);
}

TEST(QRTThreadsChild, ReportsProcessors) {
  if (!QRTSysIsChild()) GTEST_SKIP() << "runs as a child of MultiThreadingSwitchDecidesProcessorCount";
  printf("processors=%d allowed=%d\n", QRTThreads::GetProcessorsNumber(), QRTThreads::IsMultiThreadingAllowed());
}

// The count comes from the switch, then QRTSysThreads, then the processors the process may
// use: under `taskset -c 0`, one.
TEST(QRTThreadsTest, MultiThreadingSwitchDecidesProcessorCount) {
  cpu_set_t mask;
  ASSERT_EQ(0, sched_getaffinity(0, sizeof(mask), &mask));
  ASSERT_LE(QRTSysUsableCpus(), CPU_COUNT(&mask));
  std::string usable = std::to_string(QRTSysUsableCpus());
  struct Case {
    std::vector<std::string> env;
    bool firstCpuOnly;
    std::string expected;
  };
  Case const cases[] = {
      {{"QRTSysMultiThreading=FALSE"}, false, "processors=1 allowed=0"},
      {{"QRTSysMultiThreading=false"}, false, "processors=" + usable + " allowed=-1"},
      {{"QRTSysMultiThreading=FALSE", "QRTSysThreads=5"}, false, "processors=1 allowed=0"},
      {{"QRTSysThreads=5"}, true, "processors=5 allowed=-1"},
      {{"QRTSysThreads=0"}, false, "processors=" + usable + " allowed=-1"},
      {{"QRTSysThreads=4x"}, false, "processors=" + usable + " allowed=-1"},
      {{}, true, "processors=1 allowed=-1"},
  };
  for (Case const& c : cases) {
    std::vector<std::string> env = c.env;
    env.insert(env.begin(), "QRTSysThreads");
    ChildResult child = QRTSysRunChild("QRTThreadsChild.ReportsProcessors", env, c.firstCpuOnly);
    EXPECT_EQ(child.status, 0) << child.err;
    EXPECT_NE(child.out.find(c.expected), std::string::npos) << c.expected << "\n" << child.out;
  }
}

TEST(QRTThreadsTest, QuotaLinesGiveWholeProcessors) {
  struct Case {
    char const* text;
    long long v1Period;
    int cpus;
  } const cases[] = {
      {"max 100000", 0, 0},
      {"200000 100000", 0, 2},
      {"150000 100000\n", 0, 2},
      {"50000 100000", 0, 1},
      {"-1", 100000, 0},
      {"300000", 100000, 3},
      {"", 0, 0},
      {"abc 100000", 0, 0},
      {"100000 0", 0, 0},
      {"100000", 0, 0},
  };
  for (auto const& c : cases) EXPECT_EQ(c.cpus, QRTSysQuotaCpus(c.text, c.v1Period)) << c.text;
}
