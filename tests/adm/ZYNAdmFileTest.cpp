#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include "ZYNAdmFile.h"
#include "support/ZYNTestTempTree.h"

typedef ZYNAdmFile F;

TEST(ZYNAdmFile, ConstructionFoldsPathsOrReportsCatalogueKey) {
  // error: the newest record, "" for a valid object.
  struct Case {
    char const* path;
    F::Type type;
    char const* error;
    F::Type finalType;
    char const *full, *plain, *parent;
  } cases[] = {
      {"", F::TypeFile, "ZYNInsControler.EmptyPath()", F::TypeFile, "", "", ""},
      {"a/b", F::TypeFile, "ZYNInsControler.InvalidPathFormat(a/b)", F::TypeFile, "", "", ""},
      {"/a/../../b", F::TypeFile, "ZYNInsControler.InvalidParentPath(/a/../../b)", F::TypeFile, "", "", ""},
      {"/..", F::TypeDirectory, "ZYNInsControler.InvalidParentPath(/..)", F::TypeDirectory, "", "", ""},
      {"/", F::TypeFile, "ZYNInsControler.NotAFileName(/)", F::TypeFile, "", "", ""},
      {"/a/", F::TypeFile, "ZYNInsControler.NotAFileName(/a/)", F::TypeFile, "", "", ""},
      {"\\a\\b", F::TypeFile, "", F::TypeFile, "/a/b", "/a/b", "/a"},
      {"/a/./b//c", F::TypeDirectory, "", F::TypeDirectory, "/a/b/c/", "/a/b/c", "/a/b/"},
      {"/a/b/../c", F::TypeFile, "", F::TypeFile, "/a/c", "/a/c", "/a"},
      {"/", F::TypeDirectory, "", F::TypeDirectory, "//", "/", "/"},
      {"/x", F::TypeFile, "", F::TypeFile, "//x", "//x", "/"},
      {"/zyn-none/b/", F::TypeUnknown, "", F::TypeDirectory, "/zyn-none/b/", "/zyn-none/b", "/zyn-none/"},
      {"/zyn-none", F::TypeUnknown, "", F::TypeUnknown, "/zyn-none", "/zyn-none", "/"},
  };
  for (Case const& c : cases) {
    ZYNAdmError::FlushStack();
    F file(ZYNTestD(c.path), c.type, 0);
    SCOPED_TRACE(c.path);
    EXPECT_EQ(c.error[0] == 0, file.IsValid() == 1);
    EXPECT_EQ(c.error, ZYNTestS(ZYNAdmError::GetError(0)));
    if (c.error[0] != 0) {
      EXPECT_EQ(3, ZYNAdmError::GetErrorType(0));
      EXPECT_EQ(ZYN_E_FAIL, ZYNAdmError::GetHRESULT(0));
      EXPECT_EQ(0, ZYNAdmError::GetErrorCode(0));
      continue;
    }
    EXPECT_EQ(c.finalType, file.GetType());
    EXPECT_EQ(c.full, ZYNTestS(file.FullPath()));
    EXPECT_EQ(c.plain, ZYNTestS(file.PlainPath()));
    EXPECT_EQ(c.parent, ZYNTestS(file.ParentPath()));
  }
}

TEST(ZYNAdmFile, CheckComparesRequestWithWhatStandsOnDisk) {
  ZYNTestTempTree tree;
  std::string dir = tree.Dir("d");
  std::string file = tree.File("f");
  struct Case {
    std::string path;
    F::Type type;
    unsigned char check;
    std::string error;
  } cases[] = {
      {dir, F::TypeFile, 1, "ZYNInsControler.InvalidFileDirExist(" + dir + ", " + dir + ")"},
      {file + "/", F::TypeDirectory, 1, "ZYNInsControler.InvalidDirFileExist(" + file + "/, " + file + ")"},
      // The unnormalised path keeps its slash, and stat of "file/" finds nothing.
      {file + "/", F::TypeUnknown, 1, ""},
      {dir, F::TypeFile, 0, ""},
      {tree.Path("missing"), F::TypeFile, 1, ""},
      {dir, F::TypeUnknown, 1, ""},
  };
  for (Case const& c : cases) {
    ZYNAdmError::FlushStack();
    F object(ZYNTestD(c.path), c.type, c.check);
    EXPECT_EQ(c.error.empty(), object.IsValid() == 1) << c.path;
    EXPECT_EQ(c.error, ZYNTestS(ZYNAdmError::GetError(0)));
  }
}

TEST(ZYNAdmFile, AccessKnowsModesZeroTwoFourOnly) {
  ZYNTestTempTree tree;
  F dir(ZYNTestD(tree.Root()), F::TypeDirectory, 1);
  int expected[] = {ZYN_S_OK, ZYN_E_FAIL, ZYN_S_OK, ZYN_E_FAIL, ZYN_S_OK, ZYN_E_FAIL};
  for (int mode = 0; mode < 6; ++mode) EXPECT_EQ(expected[mode], dir.Access(mode)) << mode;
  F invalid(DString(L"relative"), F::TypeDirectory, 0);
  EXPECT_EQ(ZYN_E_FAIL, invalid.Access(0));
  ZYNAdmError::FlushStack();
  EXPECT_EQ(1, invalid.IsRootPath());
  EXPECT_EQ("ZYNInsControler.InvalidZYNAdmFileRoot(relative)", ZYNTestS(ZYNAdmError::GetError(0)));
}

TEST(ZYNAdmFile, TrialMkDirsCreatesThenRemovesEveryMissingLevel) {
  ZYNTestTempTree tree;
  F file(tree.DPath("a/b/c/f.txt"), F::TypeFile, 1);
  EXPECT_EQ(ZYN_S_OK, file.MkDirs(1));
  EXPECT_FALSE(tree.Exists("a"));
  EXPECT_EQ(ZYN_S_OK, file.MkDirs(0));
  EXPECT_TRUE(tree.Exists("a/b/c/f.txt"));
  tree.File("a/b/c/f.txt", "kept");
  EXPECT_EQ(ZYN_S_OK, file.MkDirs(0));
  EXPECT_EQ("kept", tree.Read("a/b/c/f.txt"));
  EXPECT_EQ(ZYN_E_FAIL, F(tree.DPath("u"), F::TypeUnknown, 0).MkDirs(0));
  EXPECT_TRUE(ZYNAdmError::IsStackEmpty());
}

TEST(ZYNAdmFile, MkDirsReportsEachFailingLevel) {
  ZYNTestTempTree tree;
  std::string blocker = tree.File("file");
  std::string longName(300, 'n');
  struct Case {
    std::string path;
    std::vector<std::string> errors;
  } cases[] = {
      {blocker + "/sub/x",
       {"ZYNInsControler.InvalidDirFileExist(" + blocker + "/, " + blocker + ")",
        "ZYNInsControler.InvalidZYNAdmFileRoot(" + blocker + "/)",
        "ZYNInsControler.InvalidRootPath(" + blocker + "/)"}},
      {tree.Path(longName), {"ZYNInsControler.UnableToCreateDir(" + tree.Path(longName) + ", File name too long)"}},
  };
  for (Case const& c : cases) {
    F dir(ZYNTestD(c.path), F::TypeDirectory, 1);
    EXPECT_EQ(ZYN_E_FAIL, dir.MkDirs(0));
    EXPECT_EQ(c.errors, ZYNTestDrainErrors());
  }
}

TEST(ZYNAdmFile, DeleteNamesPathAndSystemText) {
  ZYNTestTempTree tree;
  tree.Dir("full");
  tree.File("full/x");
  EXPECT_EQ(ZYN_E_FAIL, F(tree.DPath("gone"), F::TypeFile, 1).Delete());
  EXPECT_EQ(ZYN_E_FAIL, F(tree.DPath("full/"), F::TypeDirectory, 1).Delete());
  EXPECT_EQ(ZYN_E_FAIL, F(tree.DPath("full"), F::TypeUnknown, 1).Delete());
  std::vector<std::string> expected = {"Unable to delete file " + tree.Path("gone") + " No such file or directory",
                                       "Unable to delete directory " + tree.Path("full") + " Directory not empty"};
  EXPECT_EQ(expected, ZYNTestDrainErrors());
}

TEST(ZYNAdmFile, PathTextHelpers) {
  struct Case {
    DString (*function)(DString);
    char const* input;
    char const* expected;
  } cases[] = {
      {F::OsExeExtensionNormalize, "setup.exe", "setup"},
      {F::OsExeExtensionNormalize, "run.bat", "run.sh"},
      {F::OsExeExtensionNormalize, "go.exesh", "go.sh"},
      {F::OsExeExtensionNormalize, "a.sh", "a.sh"},
      {F::CleanPath, "a\\\\b///c/", "a/b/c"},
      {F::CleanPath, "/", "/"},
      {F::CleanPath, "", ""},
      {F::CleanPath, "//", "/"},
      {F::OsSlashNormalize, "a\\b\\", "a/b/"},
      {F::OsPathSeparatorNormalize, "a;b;", "a:b:"},
  };
  for (Case const& c : cases) EXPECT_EQ(c.expected, ZYNTestS(c.function(ZYNTestD(c.input)))) << c.input;
}

TEST(ZYNAdmFile, LineCopyTurnsLineEndsIntoLineFeeds) {
  ZYNTestTempTree tree;
  tree.File("in", "a\r\nb");
  EXPECT_EQ(ZYN_S_OK, F::CopyFile(tree.DPath("in"), tree.DPath("out")));
  EXPECT_EQ("a\nb\n", tree.Read("out"));
  EXPECT_EQ(ZYN_E_FAIL, F::CopyFile(tree.DPath("in"), tree.DPath("in")));
  EXPECT_EQ(ZYN_E_FAIL, F::CopyFile(tree.DPath("in"), DString(L"/dev/full")));  // fails at the flush
}

TEST(ZYNAdmFile, RewritesGoThroughTemporaryFileAndKeepTheOldMode) {
  ZYNTestTempTree tree;
  std::string path = tree.File("f", "one two\r\ntwo\n");
  chmod(path.c_str(), 0640);
  struct utimbuf old = {1000000, 1000000};
  utime(path.c_str(), &old);
  EXPECT_EQ(ZYN_S_OK, F::ReplaceInLines(ZYNTestD(path), DString(L"three"), DString(L"x")));
  EXPECT_EQ(1000000, F::GetLastModificationDate(ZYNTestD(path)));  // no hit, no write
  EXPECT_EQ(ZYN_S_OK, F::ReplaceInLines(ZYNTestD(path), DString(L"two"), DString(L"2")));
  EXPECT_EQ("one 2\n2\n", tree.Read("f"));
  EXPECT_EQ(0640u, tree.Mode("f"));
  chmod(path.c_str(), 0604);
  EXPECT_EQ(ZYN_S_OK, F::CreateFileFromLines(ZYNTestD(path), DStrings(DString(L"a"), DString(L"b\n"))));
  EXPECT_EQ("a\nb\n", tree.Read("f"));
  EXPECT_EQ(0604u, tree.Mode("f"));
  EXPECT_EQ(ZYN_S_OK, F::CreateFileFromLines(tree.DPath("new"), DStrings(DString(L"n"))));
  EXPECT_EQ(2, F::GetSize(tree.DPath("new")));
  EXPECT_EQ(-1, F::GetSize(tree.DPath("none")));
  EXPECT_FALSE(tree.Exists("f.TempoFile_ReplaceInLines") || tree.Exists("f.TempoFile_CreateFileFromLines"));
}

TEST(ZYNAdmFile, AddLineStartsNewLineAfterUnterminatedText) {
  ZYNTestTempTree tree;
  struct Case {
    char const *before, *line, *after;
  } cases[] = {{"", "x", "x\n"}, {"a", "x", "a\nx\n"}, {"a\n", "x\n", "a\nx\n"}, {"a\n", "", "a\n\n"}};
  for (Case const& c : cases) {
    tree.File("f", c.before);
    EXPECT_EQ(ZYN_S_OK, F::AddLine(tree.DPath("f"), ZYNTestD(c.line)));
    EXPECT_EQ(c.after, tree.Read("f"));
  }
}

TEST(ZYNAdmFile, AddTextAppendsOrOverwritesAndReportsPathWithoutBlank) {
  ZYNTestTempTree tree;
  tree.File("f", "a");
  EXPECT_EQ(ZYN_S_OK, F::AddText(tree.DPath("f"), DString(L"b"), 1));
  EXPECT_EQ(ZYN_S_OK, F::AddText(tree.DPath("g"), DString(L"c"), 0));
  EXPECT_EQ("ab", tree.Read("f"));
  EXPECT_EQ("c", tree.Read("g"));
  EXPECT_EQ(ZYN_E_FAIL, F::AddText(tree.DPath("none/f"), DString(L"c"), 0));
  EXPECT_EQ(std::vector<std::string>{tree.Path("none/f") + "No such file or directory"}, ZYNTestDrainErrors());
}
