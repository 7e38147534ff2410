// The move of a run to a copy of the executable: what the copy is called, what it may do,
// what it is started with, and that it removes itself. Each test copies into a folder of
// its own; the exec happens in a forked child.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "DStrings.h"
#include "ZYNAdmStdLib.h"
#include "ZYNInsMediaCheckerServices.h"
#include "support/ZYNTestTempTree.h"
#include "support/CaptureStdout.h"

typedef ZYNInsMediaCheckerServices Services;

namespace {

DStrings Args(std::vector<std::string> const& args) {
  DStrings result;
  for (auto const& arg : args) result.PutBack(ZYNTestD(arg));
  return result;
}

struct Relaunched {
  int status;
  std::string out;
};

// Calls the relocation in a child whose standard output is collected; a child that comes
// back from the call ends with 99.
Relaunched RelaunchInChild(std::vector<std::string> const& args, std::string const& tempDir) {
  Relaunched result{-1, ""};
  result.out = CaptureStdoutOfChild(
      [&] {
        setenv("LC_ALL", "C", 1);
        unsetenv("ZYN_DEBUG_DISPLAY");
        Services::RestartFromTempExecutable(Args(args), ZYNTestD(tempDir));
        _exit(99);
      },
      &result.status);
  return result;
}

TEST(Relocation, CopyIsUsableByAllAndStartsUnderItsDoubleSlashName) {
  ZYNTestTempTree tree;
  for (auto const& dir : {"media", "temp"}) tree.Dir(dir);
  std::string shell = tree.Path("media/sh");
  ASSERT_EQ(CopyFile(const_cast<char*>("/bin/sh"), const_cast<char*>(shell.c_str())), 0);
  chmod(shell.c_str(), 0500);
  Relaunched result = RelaunchInChild({shell, "-c", "echo \"$0\"; stat -c %a \"$0\""}, tree.Path("temp///"));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, tree.Path("temp//sh") + "\n777\n");
}

// Runs that don't replace the process: already the copy, failures, and the removal,
// whose true means failure.
TEST(Relocation, OutcomesThatKeepTheProcess) {
  ZYNTestTempTree tree;
  tree.Dir("temp");
  tree.File("temp/exe", "x");
  ZYNAdmError::FlushStack();
  EXPECT_EQ(Services::RestartFromTempExecutable(Args({tree.Path("temp/exe"), "-dup"}), tree.DPath("temp//")), 0);
  EXPECT_TRUE(ZYNAdmError::IsStackEmpty());
  EXPECT_EQ(tree.Read("temp/exe"), "x");  // a copy onto itself would have emptied it
  EXPECT_EQ(Services::RestartFromTempExecutable(Args({tree.Path("none")}), tree.DPath("temp")), 1);
  EXPECT_EQ(ZYNTestS(ZYNAdmError::Pop()), tree.Path("none") + " No such file or directory\n");
  ZYNAdmError::FlushStack();
  EXPECT_EQ(Services::RestartFromTempExecutable(DStrings(), tree.DPath("temp")), 1);
  EXPECT_EQ(ZYNTestDrainErrors(), std::vector<std::string>{"Internal error"});
  EXPECT_FALSE(Services::RemoveTempExecutable(ZYNTestD(tree.Root() + "//temp/exe")));
  EXPECT_FALSE(tree.Exists("temp/exe"));
  EXPECT_TRUE(Services::RemoveTempExecutable(tree.DPath("temp/exe")));
  EXPECT_EQ(ZYNTestDrainErrors(), std::vector<std::string>{tree.Path("temp/exe") + " No such file or directory\n"});
}

}  // namespace
