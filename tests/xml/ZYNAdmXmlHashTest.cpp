#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "XmlTestSupport.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlHash.h"
#include "ZYNAdmXmlParser.h"

using xmltest::kDeclaration;
using xmltest::Narrow;
using xmltest::RecordingStream;

namespace {

const wchar_t kSeal[] = L"ZYNHachageSomme";

ZYNAdmXmlElement sSample(bool withChild) {
  ZYNAdmXmlElement a(L"a"), b(L"b");
  if (!withChild) return a;
  a.SetAttributeValue(L"x", L"1");
  b.SetAttributeValue(L"y", xmltest::Utf8("caf\xC3\xA9"));
  a.AddChild(b);
  return a;
}

std::string sSeal(const ZYNAdmXmlElement& element) { return Narrow(element.GetAttributeValue(kSeal)); }

TEST(XmlHash, WorkedExamplesGiveTheirBytesAndDigestsRepeatably) {
  struct Case {
    bool withChild;
    std::string bytes, digest;
  } cases[] = {
      {false, "<a ZYNHachageSomme=\"SHA256_v1_\"/>",
       "b0ab137060cedf50fcc37d9c2f499c4842ee8c1f76ff8efd594a93ceac4dc1c6"},
      {true, "<a ZYNHachageSomme=\"SHA256_v1_\" x=\"1\"><b y=\"caf\xC3\xA9\"/></a>",
       "2c2180c416497171469680676f1b0f94a89f2ba6241b666d2b833191da353c5c"},
  };
  for (const Case& c : cases) {
    ZYNAdmXmlElement element = sSample(c.withChild);
    element.SetAttributeValue(kSeal, L"SHA256_v1_");
    RecordingStream hashed;
    ZYNAdmXmlParser::GetXml(element, hashed);
    EXPECT_EQ(kDeclaration + c.bytes, hashed.bytes);
    for (int round = 0; round < 2; ++round) {
      EXPECT_EQ(1, ZYNAdmXmlHash::Hash(element));
      EXPECT_EQ("ZYNHachageSomme=SHA256_v1_" + c.digest, Narrow(ZYNAdmXmlHash::GetHash(element)));
    }
  }
}

TEST(XmlHash, AnyChangeToTheTreeBreaksTheSealAndCheckLeavesItAlone) {
  auto child = [](ZYNAdmXmlElement& a) -> ZYNAdmXmlElement& {
    void* it = a.GetChildren();
    return const_cast<ZYNAdmXmlElement&>(a.GetChild(it));
  };
  std::function<void(ZYNAdmXmlElement&)> changes[] = {
      [](ZYNAdmXmlElement& a) { a.SetAttributeValue(L"x", L"2"); },
      [](ZYNAdmXmlElement& a) { a.SetAttributeValue(L"z", L""); },
      [](ZYNAdmXmlElement& a) { a.SetValue(L" "); },
      [&](ZYNAdmXmlElement& a) { child(a).SetAttributeValue(L"y", L"cafe"); },
      [&](ZYNAdmXmlElement& a) { child(a).SetAttributeValue(kSeal, L""); },
      [&](ZYNAdmXmlElement& a) {
        ZYNAdmXmlElement first = child(a);
        a.RemoveChild(first);
        a.AddChild(first);
      },
      [](ZYNAdmXmlElement& a) { a.SetAttributeValue(kSeal, L"SHA256_v1_"); },
  };
  auto sealed = [] {
    ZYNAdmXmlElement tree = sSample(true);
    tree.AddChild(ZYNAdmXmlElement(L"second"));
    ZYNAdmXmlHash::Hash(tree);
    return tree;
  };
  for (auto& change : changes) {
    ZYNAdmXmlElement tree = sealed();
    ASSERT_EQ(1, ZYNAdmXmlHash::Check(tree));
    change(tree);
    std::string before = sSeal(tree);
    EXPECT_EQ(2, ZYNAdmXmlHash::Check(tree));
    EXPECT_EQ(before, sSeal(tree));
    // Nor does a changed tree take the seal of the one it was; only the seal's own value
    // is no change to the tree.
    ZYNAdmXmlElement original = sealed();
    bool sealOnly = &change == &changes[6];
    EXPECT_EQ(sealOnly, ZYNAdmXmlHash::TakeSealOfSame(tree, original));
    EXPECT_EQ(sealOnly ? sSeal(original) : before, sSeal(tree));
  }
}

// A tree the same as a sealed one takes its seal, exactly what hashing it gives; one
// different leaf anywhere in a long list, or one leaf more, and it is left alone.
TEST(XmlHash, ASameTreeTakesTheSealOfTheSealedOne) {
  auto make = [](int differentAt, int count) {
    ZYNAdmXmlElement root(L"Media"), list(L"CD");
    for (int i = 0; i < count; ++i) {
      ZYNAdmXmlElement file(L"File");
      file.SetAttributeValue(L"hash", i == differentAt ? DString(L"x") : DString::FromNum(i, "%064d"));
      file.SetAttributeValue(L"path", DString(L"/d/f") + DString::FromNum(i, "%d"));
      list.AddChild(file);
    }
    root.AddChild(list);
    return root;
  };
  ZYNAdmXmlElement sealed = make(-1, 5000);
  ASSERT_EQ(1, ZYNAdmXmlHash::Hash(sealed));
  struct Case {
    int differentAt, count;
    bool same;
  } const cases[] = {{-1, 5000, true}, {0, 5000, false}, {4095, 5000, false}, {4999, 5000, false}, {-1, 5001, false}};
  for (Case const& c : cases) {
    ZYNAdmXmlElement tree = make(c.differentAt, c.count);
    EXPECT_EQ(c.same, ZYNAdmXmlHash::TakeSealOfSame(tree, sealed)) << c.differentAt << " " << c.count;
    if (c.same) {
      EXPECT_EQ(sSeal(sealed), sSeal(tree));
      EXPECT_EQ(1, ZYNAdmXmlHash::Check(tree));
    } else {
      EXPECT_EQ("", sSeal(tree)) << c.differentAt;
    }
  }
}

TEST(XmlHash, CheckTellsMissingAndUncomputableSeals) {
  ZYNAdmXmlElement unsealed = sSample(true), unnamed;
  EXPECT_EQ(0, ZYNAdmXmlHash::Check(unsealed));
  EXPECT_EQ("none", Narrow(unsealed.GetAttributeValue(kSeal, L"none")));
  unnamed.SetAttributeValue(kSeal, L"SHA256_v1_0");
  EXPECT_EQ(-1, ZYNAdmXmlHash::Check(unnamed));
  EXPECT_EQ("SHA256_v1_0", sSeal(unnamed));
  EXPECT_EQ(0, ZYNAdmXmlHash::Hash(unnamed));
  EXPECT_EQ("SHA256_v1_", sSeal(unnamed));
}

}  // namespace
