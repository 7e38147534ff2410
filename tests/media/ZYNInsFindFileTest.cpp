#include <gtest/gtest.h>
#include <utime.h>

#include <algorithm>

#include "ZYNInsFindFile.h"
#include "support/ZYNTestTempTree.h"

// Every entry the walk gives, as "name:type", sorted; "!" marks a failure at the end.
static std::string sWalk(std::string const& path, int mask) {
  ZYNInsFindFile finder(ZYNTestD(path), mask);
  std::vector<std::string> entries;
  int result;
  while ((result = finder.GetNextFile()) == 1) {
    entries.push_back(ZYNTestS(finder.GetName()) + ":" + std::to_string(finder.GetType()));
  }
  std::sort(entries.begin(), entries.end());
  std::string joined;
  for (std::string const& entry : entries) joined += entry + " ";
  return joined + (result < 0 ? "!" : "");
}

TEST(ZYNInsFindFile, MaskSelectsTypesAndLinksCountAsWhatTheyReach) {
  ZYNTestTempTree tree;
  tree.Dir("w");
  tree.Dir("w/d");
  tree.File("w/f");
  tree.Fifo("w/pipe");
  tree.Link(tree.Path("w/d"), "w/ld");
  tree.Link(tree.Path("w/f"), "w/lf");
  tree.Dir("empty");
  struct Case {
    char const* dir;
    int mask;
    char const* expected;
  } cases[] = {
      {"w", 1, "d:1 ld:1 "}, {"w", 2, "f:2 lf:2 "}, {"w", 3, "d:1 f:2 ld:1 lf:2 "}, {"w", 0, ""}, {"empty", 3, ""},
  };
  for (Case const& c : cases) EXPECT_EQ(c.expected, sWalk(tree.Path(c.dir), c.mask)) << c.dir << " " << c.mask;
  EXPECT_TRUE(ZYNAdmError::IsStackEmpty());
}

TEST(ZYNInsFindFile, FailuresEndTheWalkWithQuotedPathAndSystemText) {
  ZYNTestTempTree tree;
  tree.Dir("w");
  tree.Link(tree.Path("gone"), "w/dangling");
  struct Case {
    std::string path;
    std::string message;
  } cases[] = {
      {tree.Path("w"), "\"" + tree.Path("w") + "/dangling\" No such file or directory\n"},
      {tree.Path("none"), "\"" + tree.Path("none") + "\" No such file or directory\n"},
      {tree.File("file"), "\"" + tree.Path("file") + "\" Not a directory\n"},
      {"", "Input path is empty\n"},
  };
  for (Case const& c : cases) {
    EXPECT_EQ("!", sWalk(c.path, 3));
    EXPECT_EQ(std::vector<std::string>{c.message}, ZYNTestDrainErrors());
  }
}

TEST(ZYNInsFindFile, RawStepGivesDotsAndTimesAndRestartsAfterEnd) {
  ZYNTestTempTree tree;
  tree.Dir("w");
  std::string file = tree.File("w/f");
  struct utimbuf times = {111111, 222222};
  utime(file.c_str(), &times);
  ZYNInsFindFile finder(tree.DPath("w"), 2);
  std::vector<std::string> names;
  for (int pass = 0; pass < 2; ++pass) {
    while (finder.GetNext() == 1) {
      names.push_back(ZYNTestS(finder.GetName()));
      if (finder.GetName() != DString(L"f")) continue;
      EXPECT_EQ(222222, finder.GetLastWriteTime());
      EXPECT_EQ(111111, finder.GetLastAccessTime());
      EXPECT_GT(finder.GetCreationTime(), 222222);
    }
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ((std::vector<std::string>{".", ".", "..", "..", "f", "f"}), names);
}
