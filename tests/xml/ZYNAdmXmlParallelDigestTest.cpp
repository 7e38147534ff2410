#include <gtest/gtest.h>

#include <string>

#include "XmlTestSupport.h"
#include "ZYNAdmSHA256.h"
#include "ZYNAdmStringOutput.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlOutputFormatter.h"
#include "ZYNAdmXmlParallelDigest.h"
#include "ZYNAdmXmlParser.h"

namespace {

// A list of `count` File elements with values that take every road of the writer:
// plain, quoted both ways, escaped and non-ASCII; `slashed` of them with a `/>` in a
// value, which the layout takes for the end of an element.
ZYNAdmXmlElement sList(int count, wchar_t const* name = L"CD", int slashed = 0) {
  ZYNAdmXmlElement list{DString(name)};
  wchar_t const* odd[] = {L"a\"b", L"a'b", L"<&>\t\n", L"caf\u00e9 \u4e00", L"_x0041_"};
  for (int i = 0; i < count; ++i) {
    ZYNAdmXmlElement file{DString(L"File")};
    file.SetAttributeValue(DString(L"path"), DString::FromNum(i, "/f%d"));
    file.SetAttributeValue(DString(L"hash"),
                           DString(i * slashed / count != (i + 1) * slashed / count ? L"x/>" : odd[i % 5]));
    if (i % 7 == 0) file.SetValue(DString(odd[i % 5]));
    list.AddChild(file);
  }
  return list;
}

std::string sDigest(ZYNAdmXmlElement const& tree, bool parallel, int& result) {
  ZYNAdmSHA256 digest;
  result = parallel ? ZYNAdmXmlParallelDigest::GetXml(tree, digest) : ZYNAdmXmlParser::GetXml(tree, digest);
  return xmltest::Narrow(digest.GetHash());
}

// The file a user reads: laid out on lines.
std::string sLaidOut(ZYNAdmXmlElement const& tree, bool parallel, int& result) {
  ZYNAdmStringOutput bytes;
  ZYNAdmXmlOutputFormatter formatter(bytes);
  result = parallel ? ZYNAdmXmlParallelDigest::Write(tree, formatter) : ZYNAdmXmlParser::GetXml(tree, formatter);
  return bytes.bytes;
}

}  // namespace

// The digest, and the same bytes written to a file.
TEST(XmlParallelDigest, GivesTheDigestOfThePlainWriterOnEveryShapeOfTree) {
  struct Case {
    char const* what;
    ZYNAdmXmlElement (*make)();
  } const cases[] = {
      {"two volumes with text around",
       [] {
         ZYNAdmXmlElement media{DString(L"Media")}, cds{DString(L"CDs")};
         media.SetAttributeValue(DString(L"cdid"), DString(L"1"));
         media.AddChild(ZYNAdmXmlElement{DString(L"RelData")});
         media.AddChild(cds);
         ZYNAdmXmlElement one = sList(9000), two = sList(5000);
         two.SetValue(DString(L"text & more"));
         cds.AddChild(one);
         cds.AddChild(two);
         cds.AddChild(sList(3));
         return media;
       }},
      {"a list at the root", [] { return sList(10001); }},
      {"a layout thrown off in a list", [] { return sList(9000, L"CD", 3); }},
      {"too small to cut", [] { return sList(100); }},
      {"an element named as the slot",
       [] {
         ZYNAdmXmlElement root{DString(L"Media")};
         root.AddChild(sList(9000));
         root.AddChild(ZYNAdmXmlElement{DString(L"ZYNAdmXmlParallelDigestSlot")});
         return root;
       }},
      {"an empty handle in a list",
       [] {
         ZYNAdmXmlElement list = sList(9000);
         list.AddChild(ZYNAdmXmlElement());
         return list;
       }},
  };
  for (Case const& c : cases) {
    ZYNAdmXmlElement tree = c.make();
    int plainResult = 0, parallelResult = 0;
    std::string plain = sDigest(tree, false, plainResult);
    EXPECT_EQ(plain, sDigest(tree, true, parallelResult)) << c.what;
    EXPECT_EQ(plainResult, parallelResult) << c.what;
    // A tree that can't be written fails both ways; what reached the file before is
    // thrown away with it.
    std::string file = sLaidOut(tree, false, plainResult);
    std::string laidOut = sLaidOut(tree, true, parallelResult);
    EXPECT_EQ(plainResult, parallelResult) << c.what;
    if (plainResult == 1) {
      EXPECT_EQ(file, laidOut) << c.what;
    }
  }
}
