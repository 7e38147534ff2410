#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "DStrings.h"
#include "ZYNAdmError.h"
#include "ZYNAdmMsgCatalog.h"
#include "support/ChildProcess.h"
#include "support/TestText.h"

// The dump switch is read once per process, so its test runs in a fresh copy of this
// binary, which does the calls from a static constructor and leaves before any test.
static int S_catalogDumpProbe = [] {
  char const* probe = std::getenv("ZYN_TEST_PROBE");
  if (probe == nullptr || std::string(probe) != "catalog-dump") return 0;
  ZYNAdmMsgCatalog::BuildMessage(DString(L"K"), DString(L"E"), nullptr, nullptr);
  unsigned char used = 0;
  DStrings p(DString(L"x"));
  ZYNAdmMsgCatalog::BuildMessage(DString(L"K"), DString(L"F"), &p, &used);
  unsetenv("ZYNDumpBuildMessage");
  ZYNAdmMsgCatalog::BuildMessage(DString(L"K"), DString(L"G"), nullptr, nullptr);
  std::fflush(stdout);
  _exit(0);
}();

// The first records of a process, pushed by several threads at once, are all kept.
static int S_firstRecordsProbe = [] {
  char const* probe = std::getenv("ZYN_TEST_PROBE");
  if (probe == nullptr || std::string(probe) != "first-records") return 0;
  std::atomic<bool> go(false);
  std::atomic<int> kept(0);
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      while (!go) std::this_thread::yield();
      ZYNAdmError::Push(DString(L"first"));
      kept += ZYNAdmError::GetStackSize() == 1;
      ZYNAdmError::FlushStack();
    });
  }
  go = true;
  for (std::thread& thread : threads) thread.join();
  std::printf("kept %d\n", kept.load());
  std::fflush(stdout);
  _exit(0);
}();

namespace {

class ZYNAdmErrorStackTest : public ::testing::Test {
 protected:
  void SetUp() override { ZYNAdmError::FlushStack(); }
  void TearDown() override { ZYNAdmError::FlushStack(); }
};

TEST_F(ZYNAdmErrorStackTest, IndexZeroIsTheNewestRecord) {
  EXPECT_TRUE(ZYNAdmError::IsStackEmpty());
  EXPECT_EQ(ZYNAdmError::GetStackSize(), 0);
  ZYNAdmError::Push(DString(L"a"));
  ZYNAdmError::Push(DString(L"b"), ZYNAdmErrorTypeFile, ZYN_E_FAIL, 0);
  ZYNAdmError::Push(DString(L"c"));
  EXPECT_EQ(ZYNAdmError::GetStackSize(), 3);
  EXPECT_EQ(W(ZYNAdmError::GetError(0)), L"c");
  EXPECT_EQ(W(ZYNAdmError::GetError(1)), L"b");
  EXPECT_EQ(W(ZYNAdmError::GetError(2)), L"a");
  EXPECT_EQ(W(ZYNAdmError::GetError(3)), L"");
  EXPECT_EQ(W(ZYNAdmError::GetError(-1)), L"");
  EXPECT_EQ(ZYNAdmError::GetErrorCode(0), 1);
  EXPECT_EQ(ZYNAdmError::GetErrorType(1), 3);
  EXPECT_EQ(ZYNAdmError::GetErrorCode(1), 0);
  EXPECT_EQ(ZYNAdmError::GetHRESULT(2), ZYN_E_FAIL);
  EXPECT_EQ(ZYNAdmError::GetErrorCode(3), 0);

  EXPECT_EQ(W(ZYNAdmError::Pop()), L"c");
  EXPECT_EQ(W(ZYNAdmError::Pop()), L"b");
  EXPECT_EQ(ZYNAdmError::GetStackSize(), 1);
  ZYNAdmError::FlushStack();
  EXPECT_EQ(ZYNAdmError::GetStackSize(), 0);
  EXPECT_TRUE(ZYNAdmError::Pop().IsEmpty());
}

TEST_F(ZYNAdmErrorStackTest, EachThreadSeesOnlyItsOwnStack) {
  ZYNAdmError::Push(DString(L"main"));
  int otherSize = -1;
  std::wstring otherPop;
  std::thread other([&] {
    otherSize = ZYNAdmError::GetStackSize();
    ZYNAdmError::Push(DString(L"other"));
    otherPop = W(ZYNAdmError::Pop());
  });
  other.join();
  EXPECT_EQ(otherSize, 0);
  EXPECT_EQ(otherPop, L"other");
  EXPECT_EQ(ZYNAdmError::GetStackSize(), 1);
  EXPECT_EQ(W(ZYNAdmError::Pop()), L"main");
}

TEST_F(ZYNAdmErrorStackTest, FirstRecordsOfManyThreadsAtOnceAreAllKept) {
  for (int run = 0; run < 20; ++run) {
    ChildResult child = RunChild({SelfExecutable()}, {"ZYN_TEST_PROBE=first-records"});
    ASSERT_EQ(0, child.status) << child.err;
    ASSERT_EQ("kept 8\n", child.out);
  }
}

// Records left on a thread's stack go with the thread; the main thread's stack stays.
TEST_F(ZYNAdmErrorStackTest, RecordsLeftByAThreadAreFreedWhenItEnds) {
  static int S_alive = 0;
  struct Counted : ZYNAdmError {
    Counted() : ZYNAdmError(DString(L"x"), ZYNAdmErrorTypeApplication, 0, 0) { ++S_alive; }
    ~Counted() override { --S_alive; }
  };
  ZYNAdmError::StackError(new Counted());
  std::thread([] { ZYNAdmError::StackError(new Counted()), ZYNAdmError::StackError(new Counted()); }).join();
  EXPECT_EQ(S_alive, 1);
  ZYNAdmError::FlushStack();
  EXPECT_EQ(S_alive, 0);
}

TEST_F(ZYNAdmErrorStackTest, PushGetLastErrorAddsTheErrnoText) {
  errno = 0;
  ZYNAdmError::PushGetLastError(DString(L"ignored"), ZYNAdmErrorTypeApplication, ZYN_E_FAIL);
  EXPECT_EQ(ZYNAdmError::GetStackSize(), 0);
  errno = ENOENT;
  ZYNAdmError::PushGetLastError(DString(L"open"), ZYNAdmErrorTypeApplication, ZYN_E_FAIL);
  EXPECT_EQ(ZYNAdmError::GetErrorCode(0), ENOENT);
  EXPECT_EQ(W(ZYNAdmError::Pop()), L"open\nError num: 2\nNo such file or directory");
}

TEST(ZYNAdmMsgCatalogTest, MessageIsTheKeyWithItsParameters) {
  struct Case {
    int parameterCount;
    std::wstring expected;
  } cases[] = {{-1, L"ZYNInsControler.EmptyPath()"},
               {0, L"ZYNInsControler.EmptyPath()"},
               {1, L"ZYNInsControler.EmptyPath(a)"},
               {2, L"ZYNInsControler.EmptyPath(a, b)"},
               {3, L"ZYNInsControler.EmptyPath(a, b, )"}};
  for (auto const& c : cases) {
    DStrings parameters;
    DString values[] = {DString(L"a"), DString(L"b"), DString()};
    for (int i = 0; i < c.parameterCount; ++i) parameters.PutBack(values[i]);
    unsigned char used = 7;
    DString text = ZYNAdmMsgCatalog::BuildMessage(DString(L"ZYNInsControler"), DString(L"EmptyPath"),
                                                  c.parameterCount < 0 ? nullptr : &parameters, &used);
    EXPECT_EQ(W(text), c.expected);
    EXPECT_EQ(used, 1);
  }
}

TEST(ZYNAdmMsgCatalogTest, DumpSwitchIsReadOncePerProcess) {
  std::string out = RunChild({SelfExecutable()}, {"ZYN_TEST_PROBE=catalog-dump", "ZYNDumpBuildMessage="}).out;
  EXPECT_EQ(out,
            "ZYNDumpBuildMessage activated\n"
            "ZYNDumpBuildMessage_default=`K.E()`msg=`K.E()`bool_not_asked\n"
            "ZYNDumpBuildMessage_default=`K.F(x)`msg=`K.F(x)`bool_asked_and_default_msg_IS_used\n"
            "ZYNDumpBuildMessage_default=`K.G()`msg=`K.G()`bool_not_asked\n");
}

}  // namespace
