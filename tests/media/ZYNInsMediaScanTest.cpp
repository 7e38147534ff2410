#include <gtest/gtest.h>
#include <utime.h>

#include <cstdio>
#include <random>

#include "DStrings.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNInsMediaCheckerOptions.h"
#include "ZYNInsMediaCheckerServices.h"
#include "ZYNInsMsg.h"
#include "support/CaptureStdout.h"
#include "support/OptionsForTests.h"
#include "support/ZYNTestTempTree.h"

typedef ZYNInsMediaCheckerOptions Options;
typedef ZYNInsMediaCheckerServices Services;

static std::string sAttr(ZYNAdmXmlElement const& e, char const* name) {
  return ZYNTestS(e.GetAttributeValue(ZYNTestD(name)));
}

static std::vector<ZYNAdmXmlElement> sChildren(ZYNAdmXmlElement const& parent) {
  std::vector<ZYNAdmXmlElement> children;
  for (void* it = parent.GetChildren(); it != nullptr;) children.push_back(parent.GetChild(it));
  return children;
}

// The order the sort must give: pick the earliest of the smallest, again and again.
static std::vector<std::string> sSelectionOrder(std::vector<ZYNAdmXmlElement> left) {
  std::vector<std::string> ids;
  while (!left.empty()) {
    size_t smallest = 0;
    for (size_t i = 1; i < left.size(); ++i) {
      if (Services::CompareEltsByPathAttr(left[smallest], left[i]) > 0) smallest = i;
    }
    ids.push_back(sAttr(left[smallest], "id"));
    left.erase(left.begin() + static_cast<long>(smallest));
  }
  return ids;
}

TEST(ZYNInsMediaScan, SortOrdersByPathStablyLikeRepeatedSelection) {
  std::mt19937 random(7);
  for (int size : {0, 1, 2, 50, 300}) {
    ZYNAdmXmlElement cd(DString(L"CD"));
    cd.SetAttributeValue(DString(L"dropped"), DString(L"x"));
    for (int i = 0; i < size; ++i) {
      ZYNAdmXmlElement file(DString(L"File"));
      // Few distinct paths, so that equal keys are common; "" and "/A" sort first.
      char const* paths[] = {"/b", "/a/c", "/a", "/A", "", "/a/c/d", "/ab"};
      if (random() % 9 != 0) file.SetAttributeValue(DString(L"path"), ZYNTestD(paths[random() % 7]));
      file.SetAttributeValue(DString(L"id"), DString::FromNum(i, "%d"));
      cd.AddChild(file);
    }
    std::vector<std::string> expected = sSelectionOrder(sChildren(cd));
    // The order by path has a path of its own; any other order goes through `compare`.
    for (auto compare : {&Services::CompareEltsByPathAttr, +[](ZYNAdmXmlElement const&a, ZYNAdmXmlElement const&b) {
                           return Services::CompareEltsByPathAttr(a, b);
                         }}) {
      ZYNAdmXmlElement sorted = cd.Clone(0);
      ZYNAdmXmlElement oldBody(sorted);
      Services::XmlEltSort(compare, sorted);
      std::vector<std::string> ids;
      for (ZYNAdmXmlElement const& child : sChildren(sorted)) ids.push_back(sAttr(child, "id"));
      EXPECT_EQ(expected, ids) << size;
      EXPECT_EQ("CD", ZYNTestS(sorted.GetName()));
      EXPECT_EQ("", sAttr(sorted, "dropped"));
      EXPECT_TRUE(sChildren(oldBody).empty());
    }
  }
  ZYNAdmXmlElement mixed(DString(L"CD"));
  mixed.AddChild(ZYNAdmXmlElement());  // a child without a name would never be picked
  mixed.AddChild(ZYNAdmXmlElement(DString(L"File")));
  Services::XmlEltSort(Services::CompareEltsByPathAttr, mixed);
  EXPECT_EQ(1u, sChildren(mixed).size());
}

// The progress label of check mode for the one file "/s/f", after `before` files of
// `total`; an Assembly Media numbers both volumes.
TEST(ZYNInsMediaScan, CheckModeProgressLabelIsTheSinglePrecisionPercentage) {
  ZYNTestTempTree tree;
  tree.Dir("s");
  tree.File("s/f", "a");
  struct Case {
    int before, total, amIndex;
    std::string label;
  } cases[] = {
      {0, 14, 0, "[CD2](  7%)"},   {6, 15, 0, "[CD2]( 50%)"},       {0, 2, 0, "[CD2](100%)"},
      {1, 2, 0, "[CD2](200%)"},    {28, 101, 0, "[CD2]( 29%)"},     {0, 1, 0, "[CD2](  -2147483648%)"},
      {0, 0, 0, "[CD2](  -100%)"}, {0, 14, 3, "[AMCD4-CD2](  7%)"},
  };
  for (Case const& c : cases) {
    std::string out = CaptureStdoutOfChild([&] {
      Options::ResetValues();
      ZYNInsMediaCheckerOptionsForTests::SetAssemblyMedia(c.amIndex != 0);
      ZYNInsMediaCheckerOptionsForTests::SetAssemblyMediaIndex(c.amIndex);
      ZYNAdmXmlElement cd(DString(L"CD"));
      DString errors;
      int count = c.before;
      Services::GetCDElt(ZYNTestD(tree.Root()), DString(), 2, cd, errors, count, c.total);
      std::printf("|%d|%s", count, ZYNTestS(errors).c_str());
    });
    std::string head = c.amIndex ? "<AssemblyMedia Volume 4 - Media Volume 2>\n" : "<Media Volume 2>\n";
    EXPECT_EQ(head + c.label + "\t/s/f\n|" + std::to_string(c.before + 1) + "|", out);
  }
}

TEST(ZYNInsMediaScan, CheckModeRecordsFaultsAndWalksOn) {
  ZYNTestTempTree tree;
  tree.Dir("v");
  tree.Dir("v/s");
  tree.Link("/nonexistent", "v/s/dangling");
  tree.File("v/x\\y", "a");
  tree.File("v/s/MediaContent.xml");
  tree.Dir("v/MediaContent.xml");
  tree.File("v/MediaContent.xml/in", "a");
  tree.Fifo("v/fifo");
  Options::ResetValues();
  ZYNInsMediaCheckerOptionsForTests::SetQuiet(true);
  ZYNAdmXmlElement cd(DString(L"CD"));
  DString errors;
  int count = 0;
  EXPECT_EQ(ZYNInsWalkDone, Services::GetCDElt(ZYNTestD(tree.Path("v")), DString(), 1, cd, errors, count, 3));
  std::string root = tree.Path("v");
  std::string text = ZYNTestS(errors);
  EXPECT_EQ("[CD1]\n\"" + root + "//s/dangling\" No such file or directory\n", text);
  // The name with a backslash is read as listed, not as the path it would rewrite to.
  ASSERT_EQ(2u, sChildren(cd).size());
  EXPECT_EQ("/MediaContent.xml/in", sAttr(sChildren(cd)[0], "path"));
  EXPECT_EQ("/x\\y", sAttr(sChildren(cd)[1], "path"));
  // The probe listing of the failing folder leaves its record; the walk's own was taken.
  EXPECT_EQ(std::vector<std::string>{"\"" + root + "//s/dangling\" No such file or directory\n"}, ZYNTestDrainErrors());
  Options::ResetValues();
}

// A name longer than the one looked for and led by a unit whose low byte is 0 is another
// name, though DString's == holds for the two.
TEST(ZYNInsMediaScan, CheckModeTakesReferenceElementsByTheirExactNames) {
  ZYNTestTempTree tree;
  tree.Dir("1");
  std::string out = CaptureStdoutOfChild([&] {
    Options::ResetValues();
    ZYNInsMediaCheckerOptionsForTests::SetCDsPath(ZYNTestD(tree.Root()));
    ZYNInsMediaCheckerOptionsForTests::SetCDsToCheck(DStrings(DString(L"9")));  // no volume is identified or scanned
    ZYNInsMsg::_IsDebug = true;
    DString decoy(L"\u4E00\u4E01\u4E02\u4E03\u4E04\u4E05\u4E06\u4E07");
    ZYNAdmXmlElement media(DString(L"Media")), cds(DString(L"CDs"));
    media.AddChild(ZYNAdmXmlElement(decoy));
    media.AddChild(ZYNAdmXmlElement(DString(L"RelData")));
    media.AddChild(cds);
    cds.AddChild(ZYNAdmXmlElement(DString(L"CD")));
    cds.AddChild(ZYNAdmXmlElement(decoy));
    DString errors;
    int result = Services::GetMediaXmlView(media, errors);
    void* it = media.GetChildren();
    std::printf("|%d|%s", result, ZYNTestS(media.GetChild(it).GetName()).c_str());
  });
  size_t volumes = 0;
  for (size_t at = 0; (at = out.find("process CD [", at)) != std::string::npos; ++at) ++volumes;
  EXPECT_EQ(1u, volumes) << out;
  EXPECT_EQ("|0|RelData", out.substr(out.rfind('|') - 2)) << out;
}
