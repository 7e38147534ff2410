#include <gtest/gtest.h>

#include "DStrings.h"
#include "ZYNInsMediaCheckerOptions.h"
#include "ZYNInsMediaCheckerServices.h"
#include "support/OptionsForTests.h"
#include "support/ZYNTestTempTree.h"

typedef ZYNInsMediaCheckerOptions Options;
typedef ZYNInsMediaCheckerServices Services;

static const char S_Layout[] =
    "\": a directory is missing or has an invalid name.\nCheck that all the CDs are copied in directories named\n"
    "\"<constant_prefix>1\", \"<constant_prefix>2\",..., \"<constant_prefix>n\"\nand no other directory is present.\n";

static std::string sJoin(DStrings const& names) {
  std::string joined;
  for (int i = 0; i < names.GetLength(); ++i) joined += ZYNTestS(*names.GetAsPtr(i)) + " ";
  return joined;
}

TEST(ZYNInsMediaVolumes, VolumeFoldersComeFromTheFirstSortedNameAndTheCount) {
  struct Case {
    std::vector<std::string> dirs;
    int result;
    std::string names;
  } cases[] = {
      {{"3", "1", "2"}, 1, "1 2 3 "}, {{"1", "10"}, 1, "1 2 "},
      {{"1", "01"}, 1, "01 02 "},     {{"v2", "v1", "x"}, 1, "v1 v2 v3 "},
      {{"0data", "1"}, 0, ""},        {{}, 0, ""},
      {{".git", "1"}, 0, ""},
  };
  for (Case const& c : cases) {
    ZYNTestTempTree tree;
    for (std::string const& dir : c.dirs) tree.Dir(dir);
    tree.File("0file");  // files are not volumes
    Options::ResetValues();
    ZYNInsMediaCheckerOptionsForTests::SetCDsPath(ZYNTestD(tree.Root()));
    DStrings names(DString(L"stale"));
    EXPECT_EQ(c.result, Services::GetCDsList(names)) << c.names;
    EXPECT_EQ(c.names, sJoin(names));
    std::vector<std::string> expected;
    if (c.result == 0) expected.push_back("\"" + tree.Root() + S_Layout);
    EXPECT_EQ(expected, ZYNTestDrainErrors());
  }
  ZYNInsMediaCheckerOptionsForTests::SetCDsPath(DString(L"/nonexistent/media"));
  DStrings names;
  EXPECT_EQ(-1, Services::GetCDsList(names));
  EXPECT_EQ(std::vector<std::string>{"\"/nonexistent/media\" No such file or directory\n"}, ZYNTestDrainErrors());
}

TEST(ZYNInsMediaVolumes, ReferencePathFollowsTheVolumeFolderAndTheAssemblyIndex) {
  ZYNTestTempTree tree;
  for (char const* dir : {"d1", "d2", "d3"}) tree.Dir(dir);
  struct Case {
    int amIndex;  // 0: plain media
    int cd;
    std::string expected;
  } cases[] = {
      {0, 1, "B/d1/0data/MediaContent.xml"},
      {0, 3, "B/d3/0data/MediaContent.xml"},
      {0, 4, "B//0data/MediaContent.xml"},
      {2, 2, "B/d3/0data/MediaContent.xml"},
  };
  for (Case const& c : cases) {
    Options::ResetValues();
    ZYNInsMediaCheckerOptionsForTests::SetCDsPath(ZYNTestD(tree.Root()));
    ZYNInsMediaCheckerOptionsForTests::SetAssemblyMedia(c.amIndex != 0);
    ZYNInsMediaCheckerOptionsForTests::SetAssemblyMediaIndex(c.amIndex);
    EXPECT_EQ(c.expected, ZYNTestS(Services::GetRefFilePath(DString(L"B"), c.cd))) << c.cd;
  }
  Options::ResetValues();
  ZYNInsMediaCheckerOptionsForTests::SetCDsPath(ZYNTestD(tree.Path("d1")));
  EXPECT_EQ("", ZYNTestS(Services::GetRefFilePath(DString(L"B"), 1)));
  ZYNTestDrainErrors();
  EXPECT_EQ("/0data/MediaContent.xml", ZYNTestS(Services::GetRefFilePath()));
}
