#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include <cerrno>

#include "ZYNAdmStdLib.h"
#include "ZYNAdmString.h"
#include "support/ZYNTestTempTree.h"

TEST(ZYNAdmStdLib, EmptyPathsGiveTwo) {
  DString some(L"/tmp");
  EXPECT_EQ(ENOENT, ZYNAdmStdLib::Rename(DString(), some));
  EXPECT_EQ(ENOENT, ZYNAdmStdLib::Rename(some, DString()));
  EXPECT_EQ(ENOENT, ZYNAdmStdLib::Copy(DString(), some));
  EXPECT_EQ(ENOENT, ZYNAdmStdLib::Delete(DString()));
  EXPECT_EQ(0, ZYNAdmStdLib::Exists(DString(L"/nonexistent/zyn")));
  EXPECT_EQ(1, ZYNAdmStdLib::Exists(some));
}

TEST(ZYNAdmStdLib, DeleteRemovesLinksNotTheirTargetsAndDirectoriesWhole) {
  ZYNTestTempTree tree;
  tree.Dir("keep");
  tree.File("keep/k");
  tree.Dir("d");
  tree.Dir("d/sub");
  tree.File("d/sub/f");
  tree.Fifo("d/p");
  tree.Link(tree.Path("keep"), "d/tokeep");
  tree.Link(tree.Path("keep"), "linkdir");
  tree.Link(tree.Path("gone"), "d/dangling");
  EXPECT_EQ(0, ZYNAdmStdLib::Delete(tree.DPath("linkdir")));
  EXPECT_EQ(0, ZYNAdmStdLib::Delete(tree.DPath("d")));
  EXPECT_FALSE(tree.Exists("linkdir"));
  EXPECT_FALSE(tree.Exists("d"));
  EXPECT_TRUE(tree.Exists("keep/k"));
  EXPECT_EQ(ENOENT, ZYNAdmStdLib::Delete(tree.DPath("d")));
}

TEST(ZYNAdmStdLib, CopyReportsErrnoValues) {
  ZYNTestTempTree tree;
  std::string file = tree.File("f", "x");
  std::string under = file + "/under";
  EXPECT_EQ(EEXIST, CopyFile(&file[0], &file[0]));
  EXPECT_EQ(ENOTDIR, CopyFile(&file[0], &under[0]));
  EXPECT_EQ(ENOENT, ZYNAdmStdLib::Copy(tree.DPath("missing"), tree.DPath("to")));
  EXPECT_EQ("x", tree.Read("f"));
}

TEST(ZYNAdmStdLib, CopyFollowsLinksKeepsModeAndTimesAndMakesEmptyFolders) {
  ZYNTestTempTree tree;
  tree.Dir("src");
  tree.Dir("src/empty");
  tree.Dir("src/deep");
  std::string big(20000, 'b');
  std::string file = tree.File("src/deep/f", big);
  chmod(file.c_str(), 0751);
  struct utimbuf times = {1234567, 7654321};
  utime(file.c_str(), &times);
  tree.Link(file, "src/link");
  tree.File("dst", "in the way");  // a file where a folder level is needed
  EXPECT_EQ(ENOTDIR, ZYNAdmStdLib::Copy(tree.DPath("src"), tree.DPath("dst/x")));
  ASSERT_EQ(0, ZYNAdmStdLib::Copy(tree.DPath("src"), tree.DPath("out/copy")));

  struct stat status;
  ASSERT_EQ(0, lstat(tree.Path("out/copy/link").c_str(), &status));
  EXPECT_TRUE(S_ISREG(status.st_mode));
  ASSERT_EQ(0, stat(tree.Path("out/copy/deep/f").c_str(), &status));
  EXPECT_EQ(0751u, status.st_mode & 0777);
  EXPECT_EQ(7654321, status.st_mtime);
  ASSERT_EQ(0, stat(tree.Path("out/copy/empty").c_str(), &status));
  EXPECT_TRUE(S_ISDIR(status.st_mode));
  EXPECT_EQ(big, tree.Read("out/copy/deep/f"));
  EXPECT_EQ(big, tree.Read("out/copy/link"));
}

TEST(ZYNAdmString, ReplaceAllResumesBehindInsertedText) {
  std::string text("aaa");
  EXPECT_EQ(3, ZYNAdmString::ReplaceAll(text, "a", "aa", 0));
  EXPECT_EQ("aaaaaa", text);
  text = "abab";
  EXPECT_EQ(1, ZYNAdmString::ReplaceAll(text, "ab", "x", 1));
  EXPECT_EQ("abx", text);
  EXPECT_EQ(0, ZYNAdmString::ReplaceAll(text, "", "x", 0));
  EXPECT_EQ("4294967295 1.500000", ZYNAdmString::ToString(4294967295u) + " " + ZYNAdmString::ToString(1.5f));
}
