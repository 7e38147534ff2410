// The move of a run to a copy of the executable: what the copy is called, what it may do,
// what it is started with, and that it removes itself. Each test copies into a folder of
// its own; the exec happens in a forked child.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "DStrings.h"
#include "ZYNAdmStdLib.h"
#include "ZYNInsMediaCheckerServices.h"
#include "adm/ZYNTestTempTree.h"
#include "support/ChildProcess.h"

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
  int fds[2];
  if (pipe(fds) != 0) return {-1, ""};
  std::fflush(stdout);  // what the child inherits unwritten would reach the pipe
  pid_t pid = fork();
  if (pid == 0) {
    dup2(fds[1], 1);
    close(fds[0]);
    close(fds[1]);
    setenv("LC_ALL", "C", 1);
    unsetenv("ZYN_DEBUG_DISPLAY");
    Services::RestartFromTempExecutable(Args(args), ZYNTestD(tempDir));
    _exit(99);
  }
  close(fds[1]);
  Relaunched result{-1, ""};
  char buffer[4096];
  for (ssize_t got; (got = read(fds[0], buffer, sizeof buffer)) > 0;)
    result.out.append(buffer, static_cast<size_t>(got));
  close(fds[0]);
  int raw = 0;
  waitpid(pid, &raw, 0);
  result.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
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

// The whole road of a physical media: the copy checks the media the first run named, with
// the first run's standard output, and deletes its own file.
TEST(Relocation, CopyChecksThePhysicalMediaAndRemovesItself) {
  ZYNTestTempTree tree;
  for (auto const& dir : {"tree", "tree/1", "temp"}) tree.Dir(dir);
  tree.File("tree/1/setup", "hello\n");
  ChildResult generated = RunChild({ZYN_EXE_PATH, "-generate", "-quiet", "-CD1Path", tree.Path("tree/1")});
  ASSERT_EQ(generated.status, 0) << generated.out;
  // A volume folder not named by its number is read as a physical media.
  ASSERT_EQ(std::rename(tree.Path("tree/1").c_str(), tree.Path("disc").c_str()), 0);

  Relaunched result = RelaunchInChild({ZYN_EXE_PATH, "-CD1Path", tree.Path("disc"), "-dup"}, tree.Path("temp"));
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(result.out.rfind("{Checker Mode}\n{Physical Media}\n", 0), 0u) << result.out;
  EXPECT_NE(result.out.find("Status: PASSED"), std::string::npos) << result.out;
  EXPECT_FALSE(tree.Exists("temp/ZYNInsMediaCheck"));
}

}  // namespace
