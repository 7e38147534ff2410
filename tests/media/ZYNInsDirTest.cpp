#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "DStrings.h"
#include "ZYNInsDir.h"
#include "support/CaptureStdout.h"
#include "support/ZYNTestTempTree.h"

static DString sClean(DString path) {
  ZYNInsDir::CleanAndRemoveTaillingSlash(path);
  return path;
}

TEST(ZYNInsDir, EachPathTextOperationKnowsItsOwnSeparators) {
  struct Case { DString (*operation)(DString); char const* input; char const* expected; } cases[] = {
      {sClean, "/", ""},
      {sClean, "C:\\data\\", "C:/data"},
      {sClean, "a\\b//", "a/b"},
      {ZYNInsDir::GetParentDir, "/a/b/", "/a"},
      {ZYNInsDir::GetParentDir, "/a//b", "/a"},
      {ZYNInsDir::GetParentDir, "a\\b", "a"},
      {ZYNInsDir::GetParentDir, "/a", ""},
      {ZYNInsDir::GetParentDir, "a", ""},
      {ZYNInsDir::GetName, "a/b//", "b"},
      {ZYNInsDir::GetName, "x\\y\\", "y"},
      {ZYNInsDir::GetName, "setup", ""},
      {ZYNInsDir::GetName, "/", ""},
  };
  for (Case const& c : cases) EXPECT_EQ(c.expected, ZYNTestS(c.operation(ZYNTestD(c.input)))) << c.input;
}

static std::vector<std::string> sList(DString path, bool includeDirectories, bool recursive) {
  DStrings names(DString(L"kept"));
  EXPECT_TRUE(ZYNInsDir::List(path, names, includeDirectories, recursive));
  std::vector<std::string> result;
  for (int i = 0; i < names.GetLength(); ++i) result.push_back(ZYNTestS(*names.GetAsPtr(i)));
  std::sort(result.begin(), result.end());
  return result;
}

TEST(ZYNInsDir, ListGivesBareNamesAndEntersLinkedFolders) {
  ZYNTestTempTree tree;
  tree.Dir("out");
  tree.File("out/o");
  tree.Dir("top");
  tree.File("top/f1");
  tree.Dir("top/d1");
  tree.File("top/d1/f2");
  tree.Link(tree.Path("out"), "top/ld");
  typedef std::vector<std::string> Names;
  EXPECT_EQ((Names{"f1", "f2", "kept", "o"}), sList(tree.DPath("top"), false, true));
  EXPECT_EQ((Names{"d1", "f1", "kept", "ld"}), sList(tree.DPath("top"), true, false));
  EXPECT_TRUE(ZYNAdmError::IsStackEmpty());
  EXPECT_EQ((Names{"kept"}), sList(tree.DPath("none"), true, true));
  EXPECT_EQ(1, ZYNAdmError::GetStackSize());
}

TEST(ZYNInsDir, ExecutablePathSearchNeverTriesLastPathEntry) {
  ZYNTestTempTree tree;
  std::string bin1 = tree.Dir("bin1");
  std::string bin2 = tree.Dir("bin2");
  tree.File("bin2/tool");
  std::string work = tree.Dir("work");
  char const* savedPath = std::getenv("PATH");
  std::string saved = savedPath != nullptr ? savedPath : "";
  char cwd[4096];
  ASSERT_NE(nullptr, getcwd(cwd, sizeof cwd));
  struct Case { std::string argv0, path, cwd, expected; size_t messages; } cases[] = {
      {"", bin2 + ":", work, "", 0},
      {"/abs/tool", bin2 + ":", work, "/abs/tool", 0},
      {"tool", bin1 + ":" + bin2, work, work + "/tool", 1},
      {"tool", bin2 + ":" + bin1, work, bin2 + "/tool", 0},
      {"tool", ":" + bin2, work, work + "/tool", 1},
      {"./sub/tool", bin2 + ":", work, work + "/sub/tool", 0},
      {"./sub/tool", bin2 + ":", "/", "/sub/tool", 0},
      {"../x/tool", bin2 + ":", work, work + "/../x/tool", 0},
  };
  for (Case const& c : cases) {
    ZYNAdmError::FlushStack();
    setenv("PATH", c.path.c_str(), 1);
    ASSERT_EQ(0, chdir(c.cwd.c_str()));
    EXPECT_EQ(c.expected, ZYNTestS(ZYNInsDir::GetExecutableFullPath(ZYNTestD(c.argv0)))) << c.argv0 << " " << c.path;
    EXPECT_EQ(c.messages, static_cast<size_t>(ZYNAdmError::GetStackSize()));
  }
  setenv("PATH", saved.c_str(), 1);
  ASSERT_EQ(0, chdir(cwd));
}

TEST(ZYNInsDir, AccessReportsPathAndSystemTextAlsoForUnprivilegedUser) {
  ZYNTestTempTree tree;
  std::string secret = tree.File("secret");
  chmod(secret.c_str(), 0600);
  EXPECT_EQ(-1, ZYNInsDir::Access(tree.DPath("none"), 0));
  EXPECT_EQ(std::vector<std::string>{tree.Path("none") + " No such file or directory\n"}, ZYNTestDrainErrors());
  EXPECT_EQ(0, ZYNInsDir::Access(ZYNTestD(secret), 6));

  int status = 0;
  std::string message = CaptureStdoutOfChild(
      [&] {
        if (setuid(65534) != 0) _exit(77);
        std::fputs(ZYNInsDir::Access(ZYNTestD(secret), 6) != -1 ? "accessible" : ZYNTestS(ZYNAdmError::Pop()).c_str(),
                   stdout);
      },
      &status);
  if (status == 77) GTEST_SKIP() << "needs root to drop to another user";
  EXPECT_EQ(secret + " Permission denied\n", message);
}

TEST(ZYNInsDir, TemporaryPathFallsBackToHomeThenHomeFolder) {
  ZYNTestTempTree tree;
  ZYNTestS(ZYNTestD("/"));  // conversions set up before the child changes its root
  struct Case { bool tmp; bool homeFolder; bool unprivileged; char const* home; char const* expected; } cases[] = {
      {true, true, false, "/h", "/tmp"},    {false, true, false, "/home/u/", "/home/u"},
      {false, false, false, "/h//", "/h/"}, {false, true, false, nullptr, "/home"},
      {false, true, false, "", "/home"},    {false, false, false, nullptr, ""},
      {true, false, true, "/h", "/h"},  // a /tmp that the unprivileged user can't write
  };
  int index = 0;
  for (Case const& c : cases) {
    std::string root = tree.Dir(std::to_string(index++));
    if (c.tmp) mkdir((root + "/tmp").c_str(), 0755);
    if (c.homeFolder) mkdir((root + "/home").c_str(), 0755);
    int status = 0;
    std::string got = CaptureStdoutOfChild(
        [&] {
          if (chroot(root.c_str()) != 0 || chdir("/") != 0) _exit(77);
          if (c.unprivileged && setuid(65534) != 0) _exit(77);
          c.home != nullptr ? setenv("HOME", c.home, 1) : unsetenv("HOME");
          std::fputs(ZYNTestS(ZYNInsDir::GetTemporaryPath()).c_str(), stdout);
        },
        &status);
    if (status == 77) GTEST_SKIP() << "needs chroot";
    ASSERT_EQ(0, status);
    EXPECT_EQ(c.expected, got) << index;
  }
}

TEST(ZYNInsDir, FileCopyCopiesBytesAndModeAcrossChunkBoundaries) {
  ZYNTestTempTree tree;
  for (size_t size : {0, 1, 511, 512, 513, 1024, 5000}) {
    std::string content;
    for (size_t i = 0; i < size; ++i) content += static_cast<char>(i * 7);
    std::string source = tree.File("src", content);
    chmod(source.c_str(), 0741);
    ASSERT_TRUE(ZYNInsDir::FileCopy(ZYNTestD(source), tree.DPath("dst")));
    EXPECT_EQ(content, tree.Read("dst")) << size;
    EXPECT_EQ(0741u, tree.Mode("dst"));
  }
  EXPECT_TRUE(ZYNAdmError::IsStackEmpty());
}

TEST(ZYNInsDir, FileCopyFailuresNameTheFailingSide) {
  ZYNTestTempTree tree;
  tree.File("dst", "old");
  EXPECT_FALSE(ZYNInsDir::FileCopy(tree.DPath("none"), tree.DPath("dst")));
  EXPECT_EQ("", tree.Read("dst"));  // both opens come before either is tested
  std::string missing = tree.Path("none") + " No such file or directory\n";
  EXPECT_EQ((std::vector<std::string>{missing, missing}), ZYNTestDrainErrors());

  // Mode 0666 is what /dev/full has already, so the copy's fchmod leaves it as it is.
  std::string source = tree.File("src", std::string(512, 'z'));
  chmod(source.c_str(), 0666);
  EXPECT_FALSE(ZYNInsDir::FileCopy(ZYNTestD(source), DString(L"/dev/full")));
  std::vector<std::string> errors = ZYNTestDrainErrors();
  ASSERT_EQ(1u, errors.size());
  // As root the flush at close meets the full device; otherwise fchmod is refused.
  EXPECT_EQ(0u, errors[0].find("/dev/full "));
  EXPECT_EQ('\n', errors[0].back());
}

TEST(ZYNInsDir, CreateOpenRemoveReportPathAndSystemText) {
  ZYNTestTempTree tree;
  std::string file = tree.File("f");
  EXPECT_TRUE(ZYNInsDir::CreateDir(tree.DPath("a/b/c")));
  EXPECT_TRUE(ZYNInsDir::CreateDir(tree.DPath("a/b/c")));
  EXPECT_TRUE(tree.Exists("a/b/c") && ZYNAdmError::IsStackEmpty());
  EXPECT_FALSE(ZYNInsDir::CreateDir(tree.DPath("f/x")));
  ZYNAdmError::FlushStack();
  EXPECT_EQ(nullptr, ZYNInsDir::FOpen(tree.DPath("none/x"), DString(L"r")));
  EXPECT_FALSE(ZYNInsDir::RemoveFile(tree.DPath("none")));
  EXPECT_FALSE(ZYNInsDir::RemoveFile(ZYNTestD(tree.Root())));
  std::vector<std::string> expected = {tree.Path("none/x") + " No such file or directory\n",
                                       tree.Path("none") + " No such file or directory\n",
                                       tree.Root() + " Is a directory\n"};
  EXPECT_EQ(expected, ZYNTestDrainErrors());
  EXPECT_TRUE(ZYNInsDir::RemoveFile(ZYNTestD(file)));
  EXPECT_FALSE(tree.Exists("f"));
}
