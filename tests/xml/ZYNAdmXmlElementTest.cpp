#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "XmlTestSupport.h"
#include "ZYNAdmXmlElement.h"

using xmltest::Narrow;

namespace {

std::string sAttributes(const ZYNAdmXmlElement& element) {
  std::string result;
  for (void* it = element.GetAttributes(); it != nullptr;) {
    DString name = element.GetAttributeName(it);
    result += Narrow(name) + "=" + Narrow(element.GetAttributeValue(name)) + ";";
  }
  return result;
}

std::string sChildren(const ZYNAdmXmlElement& element) {
  std::string result;
  for (void* it = element.GetChildren(); it != nullptr;) {
    result += Narrow(element.GetChild(it).GetName()) + ";";
  }
  return result;
}

TEST(XmlElement, AttributesStaySortedByUnitWhateverTheOrderOfSetting) {
  struct Case {
    std::vector<std::pair<const wchar_t*, const wchar_t*>> sets;
    const char* expected;
  } cases[] = {
      {{{L"b", L"1"}, {L"a", L"2"}}, "a=2;b=1;"},
      {{{L"aa", L"1"}, {L"a", L"2"}, {L"Z", L"3"}}, "Z=3;a=2;aa=1;"},
      {{{L"a", L"1"}, {L"b", L"2"}, {L"c", L"3"}, {L"b", L"x"}}, "a=1;b=x;c=3;"},
      {{{L"", L"1"}, {L"x", L"2"}}, "x=2;"},
  };
  for (const Case& c : cases) {
    ZYNAdmXmlElement element(L"e");
    for (const auto& set : c.sets) element.SetAttributeValue(set.first, set.second);
    EXPECT_EQ(c.expected, sAttributes(element));
  }
  ZYNAdmXmlElement element;
  EXPECT_EQ(0, element.SetAttributeValue(L"", L"v"));
  EXPECT_TRUE(element.IsEmpty());
  element.SetAttributeValue(L"b", L"");
  element.SetAttributeValue(L"d", L"4");
  unsigned char found = 7;
  EXPECT_EQ("", Narrow(element.GetAttributeValue(L"b", L"dflt", found)));
  EXPECT_EQ(1, found);
  EXPECT_EQ("dflt", Narrow(element.GetAttributeValue(L"c", L"dflt", found)));
  EXPECT_EQ(0, found);
  element.RemoveAttribute(L"c");
  element.RemoveAttribute(L"b");
  EXPECT_EQ("d=4;", sAttributes(element));
}

TEST(XmlElement, OrphanAndForeignIteratorsAreRefused) {
  ZYNAdmXmlElement& orphan = ZYNAdmXmlElement::_orphan;
  ZYNAdmXmlElement a(L"a"), b(L"b");
  EXPECT_EQ(0,
            orphan.AddChild(a) + orphan.SetName(L"n") + orphan.SetValue(L"v") + orphan.SetAttributeValue(L"a", L"v"));
  EXPECT_TRUE(orphan.Assign(a).IsOrphan() && orphan.IsEmpty());
  EXPECT_EQ(0, a.AddChild(orphan));
  EXPECT_TRUE(a.Assign(orphan).IsOrphan());
  EXPECT_EQ("a", Narrow(a.GetName()));

  b.AddChild(ZYNAdmXmlElement(L"y"));
  b.SetAttributeValue(L"k", L"v");
  void* it = b.GetChildren();
  EXPECT_TRUE(a.GetChild(it).IsOrphan());
  EXPECT_EQ(nullptr, it);
  it = b.GetAttributes();
  EXPECT_TRUE(a.GetAttributeName(it).IsEmpty());
  EXPECT_EQ(nullptr, it);
}

TEST(XmlElement, HandlesShareBodiesAndCloneDepthDecidesWhatIsShared) {
  ZYNAdmXmlElement root(L"r"), child(L"c");
  root.SetValue(L"t");
  root.AddChild(child);
  ZYNAdmXmlElement alias(root), shallow = root.Clone(0), deep = root.Clone(1);
  alias.SetAttributeValue(L"a", L"1");
  child.SetAttributeValue(L"b", L"2");
  EXPECT_EQ("a=1;", sAttributes(root));
  EXPECT_EQ("", sAttributes(shallow));
  EXPECT_EQ("t", Narrow(deep.GetValue()));
  void* it = shallow.GetChildren();
  EXPECT_EQ("b=2;", sAttributes(shallow.GetChild(it)));
  it = deep.GetChildren();
  EXPECT_EQ("", sAttributes(deep.GetChild(it)));
  deep.AddChild(ZYNAdmXmlElement(L"d"));  // the clone's tail link is its own
  EXPECT_EQ("c;d;", sChildren(deep));
  EXPECT_EQ("c;", sChildren(root));
  EXPECT_TRUE(ZYNAdmXmlElement().Clone(1).IsEmpty());
}

// Removal while walking, as the sort does: copy the handle, then remove.
TEST(XmlElement, RemoveChildKeepsTheTailLinkRight) {
  for (std::string removed : {"a", "b", "c", "abc", "x"}) {
    ZYNAdmXmlElement parent(L"p");
    for (const wchar_t* name : {L"a", L"b", L"c"}) parent.AddChild(ZYNAdmXmlElement(name));
    std::string expected;
    for (void* it = parent.GetChildren(); it != nullptr;) {
      ZYNAdmXmlElement child = parent.GetChild(it);
      std::string name = Narrow(child.GetName());
      if (removed.find(name) == std::string::npos) expected += name + ";";
      if (removed.find(name) != std::string::npos) parent.RemoveChild(child);
    }
    parent.RemoveChild(ZYNAdmXmlElement(L"a"));  // a stranger of the same name
    parent.AddChild(ZYNAdmXmlElement(L"z"));
    EXPECT_EQ(expected + "z;", sChildren(parent)) << removed;
  }
}

// A list moved in whole lands behind the children already there, in its order, whether
// its nodes are made here or by ranges on other threads; AddChild still appends after it.
TEST(XmlParallelChildren, MovedInWholeKeepTheirOrder) {
  for (size_t count : {size_t(0), size_t(1), size_t(4096), size_t(10001)}) {
    ZYNAdmXmlElement parent(L"p");
    parent.AddChild(ZYNAdmXmlElement(L"first"));
    std::vector<ZYNAdmXmlElement> children;
    std::string expected = "first;";
    for (size_t i = 0; i < count; ++i) {
      children.push_back(ZYNAdmXmlElement(DString::FromNum(static_cast<int>(i), "c%d")));
      expected += "c" + std::to_string(i) + ";";
    }
    EXPECT_EQ(parent.AddChildren(children), static_cast<int>(count));
    EXPECT_TRUE(children.empty());
    parent.AddChild(ZYNAdmXmlElement(L"last"));
    EXPECT_EQ(expected + "last;", sChildren(parent)) << count;
  }
}

TEST(XmlElement, BodiesLiveWhileAnyParentOrHandleHoldsThem) {
  ZYNAdmXmlElement parent(L"p");
  parent.AddChild(ZYNAdmXmlElement(L"kept"));
  void* it = parent.GetChildren();
  EXPECT_EQ("kept", Narrow(parent.GetChild(it).GetName()));
  it = parent.GetChildren();
  parent.Assign(parent.GetChild(it));  // its own descendant, freed with the old body
  EXPECT_EQ("kept", Narrow(parent.GetName()));
  parent = parent;
  EXPECT_EQ("kept", Narrow(parent.GetName()));
  parent.Reset();
  EXPECT_TRUE(parent.IsEmpty() && parent.GetName().IsEmpty() && !parent.GetChildren());
}

}  // namespace
