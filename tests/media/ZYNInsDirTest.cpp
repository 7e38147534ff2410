#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>

#include "DStrings.h"
#include "ZYNInsDir.h"
#include "support/CaptureStdout.h"
#include "support/ZYNTestTempTree.h"

static DString sClean(DString path) {
  ZYNInsDir::CleanAndRemoveTaillingSlash(path);
  return path;
}

TEST(ZYNInsDir, EachPathTextOperationKnowsItsOwnSeparators) {
  struct Case {
    DString (*operation)(DString);
    char const* input;
    char const* expected;
  } cases[] = {
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
  struct Case {
    std::string argv0, path, cwd, expected;
    size_t messages;
  } cases[] = {
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

TEST(ZYNInsDir, AccessIsRefusedToAnUnprivilegedUser) {
  ZYNTestTempTree tree;
  std::string secret = tree.File("secret");
  chmod(secret.c_str(), 0600);
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
  struct Case {
    bool tmp;
    bool homeFolder;
    bool unprivileged;
    char const* home;
    char const* expected;
  } cases[] = {
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

// A failed call leaves its records: for each failed system call, the path and the system's text.
TEST(ZYNInsDir, PathFailuresReportPathAndSystemText) {
  ZYNTestTempTree tree;
  tree.File("f");
  tree.File("dst", "old");
  auto error = [&](char const* path, char const* text) { return tree.Path(path) + " " + text + "\n"; };
  std::string none = error("none", "No such file or directory");
  struct Case {
    std::function<bool()> call;  // whether it succeeded
    std::vector<std::string> errors;
  } const cases[] = {
      {[&] { return ZYNInsDir::Access(tree.DPath("none"), 0) != -1; }, {none}},
      {[&] { return ZYNInsDir::CreateDir(tree.DPath("f/x")); },
       {"ZYNInsControler.InvalidDirFileExist(" + tree.Path("f/") + ", " + tree.Path("f") + ")",
        "ZYNInsControler.InvalidZYNAdmFileRoot(" + tree.Path("f/") + ")",
        "ZYNInsControler.InvalidRootPath(" + tree.Path("f/") + ")"}},
      {[&] { return !!ZYNInsDir::FOpen(tree.DPath("none/x"), DString(L"r")); },
       {error("none/x", "No such file or directory")}},
      {[&] { return ZYNInsDir::RemoveFile(tree.DPath("none")); }, {none}},
      {[&] { return ZYNInsDir::RemoveFile(tree.DPath("")); }, {error("", "Is a directory")}},
      {[&] { return ZYNInsDir::FileCopy(tree.DPath("none"), tree.DPath("dst")); }, {none, none}},
      // 0666 is the mode /dev/full has: as root the flush at close fails, else the fchmod.
      {[&] { return ZYNInsDir::FileCopy(tree.DPath("src"), DString(L"/dev/full")); }, {}},
  };
  chmod(tree.File("src", std::string(512, 'z')).c_str(), 0666);
  for (Case const& c : cases) {
    ZYNAdmError::FlushStack();
    EXPECT_FALSE(c.call());
    std::vector<std::string> errors = ZYNTestDrainErrors();
    if (!c.errors.empty()) {
      EXPECT_EQ(c.errors, errors);
    } else {
      ASSERT_EQ(1u, errors.size());
      EXPECT_EQ(0u, errors[0].find("/dev/full "));
    }
  }
  EXPECT_EQ("", tree.Read("dst")) << "both opens of a copy come before either is tested";
  EXPECT_TRUE(ZYNInsDir::CreateDir(tree.DPath("a/b/c")) && ZYNInsDir::CreateDir(tree.DPath("a/b/c")));
  EXPECT_TRUE(ZYNInsDir::RemoveFile(tree.DPath("f")));
  EXPECT_TRUE(tree.Exists("a/b/c") && !tree.Exists("f") && ZYNAdmError::IsStackEmpty());
}
