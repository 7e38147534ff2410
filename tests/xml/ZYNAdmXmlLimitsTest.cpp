#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "XmlTestSupport.h"
#include "ZYNAdmOutputStreamBuffer.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlHash.h"
#include "ZYNAdmXmlParser.h"

namespace {

// A hostile reference may nest elements as deep as its size allows; reading, sealing,
// copying and dropping it must not depend on the call stack.
TEST(ZYNAdmXmlLimits, DeeplyNestedDocumentIsParsedWrittenCopiedAndFreed) {
  const int depth = 300000;
  std::string text;
  for (int i = 0; i < depth; ++i) text += "<a>";
  for (int i = 0; i < depth; ++i) text += "</a>";
  xmltest::MemoryInput input(text);
  ZYNAdmXmlElement root;
  ASSERT_NE(ZYNAdmXmlParser::Parse(input, root), 0);

  ZYNAdmXmlElement copy = root.Clone(1);
  ZYNAdmOutputStreamBuffer out;
  ASSERT_NE(ZYNAdmXmlParser::GetXml(copy, out), 0);
  unsigned char* data = nullptr;
  int size = 0;
  ASSERT_EQ(out.GetBuffer(data, size), 1);
  std::string written(reinterpret_cast<char*>(data), static_cast<size_t>(size));
  free(data);
  size_t innermost = xmltest::kDeclaration.size() + static_cast<size_t>(depth - 1) * 3;
  EXPECT_EQ(written.size(), innermost + 4 + static_cast<size_t>(depth - 1) * 4);
  EXPECT_EQ(written.substr(innermost - 3, 11), "<a><a/></a>");
  root.Reset();
  copy.Reset();
}

TEST(ZYNAdmXmlLimits, ManyAttributesStaySortedWhateverTheirOrder) {
  std::vector<int> order(2000);
  for (int i = 0; i < 2000; ++i) order[static_cast<size_t>(i)] = i;
  std::shuffle(order.begin(), order.end(), std::mt19937(7));
  ZYNAdmXmlElement element(DString(L"e"));
  for (int i : order) element.SetAttributeValue(DString::FromNum(i + 10000, "%d"), DString::FromNum(i, "%d"));
  element.SetAttributeValue(DString(L"10500"), DString(L"changed"));
  for (int i = 0; i < 2000; i += 2) element.RemoveAttribute(DString::FromNum(i + 10000, "%d"));
  element.RemoveAttribute(DString(L"absent"));

  void* it = element.GetAttributes();
  const DString* value = nullptr;
  int expected = 10001;
  while (const DString* name = element.NextAttribute(it, value)) {
    ASSERT_TRUE(*name == DString::FromNum(expected, "%d"));
    expected += 2;
  }
  EXPECT_EQ(expected, 12001);
  EXPECT_TRUE(element.GetAttributeValue(DString(L"10501")) == DString(L"501"));
  EXPECT_TRUE(element.GetAttributeValue(DString(L"10500")).IsEmpty());

  ZYNAdmXmlElement copy = element.Clone(0);
  copy.SetAttributeValue(DString(L"10000"), DString(L"first"));
  void* first = copy.GetAttributes();
  EXPECT_TRUE(copy.NextAttribute(first, value) != nullptr && *value == DString(L"first"));
}

}  // namespace
