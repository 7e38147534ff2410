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
#include "support/CaptureStdout.h"
#include "support/ZYNTestTempTree.h"

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

// Whatever stood at the copy's name is replaced, a link without touching its target, and
// the copy runs for all but is writable by its owner alone, whatever the media's bits.
TEST(Relocation, CopyIsMadeAfreshWritableByItsOwnerOnlyAndStartsUnderItsDoubleSlashName) {
  const struct {
    char const* name;
    void (*plant)(ZYNTestTempTree const&);
  } cases[] = {
      {"nothing", [](ZYNTestTempTree const&) {}},
      {"a link to another file", [](ZYNTestTempTree const& t) { t.Link(t.Path("victim"), "temp/sh"); }},
      {"a file writable by all", [](ZYNTestTempTree const& t) { chmod(t.File("temp/sh", "old").c_str(), 0777); }},
  };
  for (auto const& c : cases) {
    ZYNTestTempTree tree;
    for (auto const& dir : {"media", "temp"}) tree.Dir(dir);
    std::string shell = tree.Path("media/sh");
    ASSERT_EQ(CopyFile(const_cast<char*>("/bin/sh"), const_cast<char*>(shell.c_str())), 0);
    chmod(shell.c_str(), 0500);
    tree.File("victim", "keep");
    c.plant(tree);
    Relaunched result = RelaunchInChild({shell, "-c", "echo \"$0\"; stat -c %a%F \"$0\""}, tree.Path("temp///"));
    EXPECT_EQ(result.status, 0) << c.name;
    EXPECT_EQ(result.out, tree.Path("temp//sh") + "\n755regular file\n") << c.name;
    EXPECT_EQ(tree.Read("victim"), "keep") << c.name;
  }
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
  // A folder at the copy's name is not removed, and a source that can't be read is no copy.
  tree.Dir("temp/d");
  tree.Dir("d");
  EXPECT_EQ(Services::RestartFromTempExecutable(Args({tree.Path("d")}), tree.DPath("temp")), 1);
  EXPECT_EQ(ZYNTestS(ZYNAdmError::Pop()), tree.Path("temp//d") + " Is a directory\n");
  rmdir(tree.Path("temp/d").c_str());
  EXPECT_EQ(Services::RestartFromTempExecutable(Args({tree.Path("d")}), tree.DPath("temp")), 1);
  EXPECT_EQ(ZYNTestS(ZYNAdmError::Pop()), tree.Path("d") + " Is a directory\n");
  ZYNAdmError::FlushStack();
  EXPECT_EQ(Services::RestartFromTempExecutable(DStrings(), tree.DPath("temp")), 1);
  EXPECT_EQ(ZYNTestDrainErrors(), std::vector<std::string>{"Internal error"});
  // Not the program this process runs (another check's copy): left where it is.
  EXPECT_FALSE(Services::RemoveTempExecutable(ZYNTestD(tree.Root() + "//temp/exe")));
  EXPECT_TRUE(tree.Exists("temp/exe"));
  unlink(tree.Path("temp/exe").c_str());
  EXPECT_FALSE(Services::RemoveTempExecutable(tree.DPath("temp/exe")));  // gone already: no failure
  EXPECT_TRUE(ZYNAdmError::IsStackEmpty());
}

}  // namespace
