#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "XmlTestSupport.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlParser.h"

using xmltest::kDeclaration;
using xmltest::RecordingStream;
using xmltest::Utf8;

namespace {

DString sUnits(std::vector<unsigned short> units) { return DString(units.data(), static_cast<int>(units.size())); }

// One element `name`, with the attribute v = `attribute` unless null, and text `text`.
TEST(XmlWriter, QuotingEscapingAndNameEncodingGiveExactBytes) {
  struct Case {
    DString name;
    const char* attribute;
    DString text;
    std::string expected;
  } cases[] = {
      {L"e", "", L"", "<e v=\"\"/>"},
      {L"e", "say \"hi\"", L"", "<e v='say \"hi\"'/>"},
      {L"e", "it's", L"", "<e v=\"it's\"/>"},
      {L"e", "it's \"x\"", L"", "<e v=\"it's &quot;x&quot;\"/>"},
      {L"e", "a<b>/>c", L"", "<e v=\"a&lt;b>/>c\"/>"},
      {L"e", "&amp;\"", L"", "<e v=\"&amp;amp;&quot;\"/>"},
      {L"e", "t\tl\nr\r", L"", "<e v=\"t&#x9;l&#xA;r&#xD;\"/>"},
      {L"e", "caf\xC3\xA9", L"", "<e v=\"caf\xC3\xA9\"/>"},
      {L"e", nullptr, Utf8("a<b>c&d\"e'f\n\t\r"), "<e>a&lt;b&gt;c&amp;d&quot;e'f\n\t\r</e>"},
      {L"a-b.c:d_9", nullptr, L"", "<a-b.c:d_9/>"},
      {L"1a", nullptr, L"", "<_x0031_a/>"},
      {L"-.", nullptr, L"", "<_x002D_./>"},
      {L"a b", nullptr, L"", "<a_x0020_b/>"},
      {Utf8("\xC3\xA9"), nullptr, L"", "<_x00E9_/>"},
      {L"_x0041_", nullptr, L"", "<_x005F_x0041_/>"},
      {L"a__x00af_", nullptr, L"", "<a__x005F_x00af_/>"},
      {L"_x0041", nullptr, L"", "<_x0041/>"},
      {L"_x004G_", nullptr, L"", "<_x004G_/>"},
      {sUnits({'a', 0x7F, 0xFFFF}), nullptr, L"", "<a_x007F__xFFFF_/>"},
      {L"e", nullptr, sUnits({0x7F, 0x80, 0x7FF, 0x800, 0xFFFF}),
       "<e>\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF</e>"},
      {L"e", nullptr, sUnits({0xD83D, 0xDE00}), "<e>\xED\xA0\xBD\xED\xB8\x80</e>"},
  };
  for (const Case& c : cases) {
    ZYNAdmXmlElement element(c.name);
    if (c.attribute != nullptr) element.SetAttributeValue(L"v", Utf8(c.attribute));
    element.SetValue(c.text);
    RecordingStream stream;
    EXPECT_EQ(1, ZYNAdmXmlParser::GetXml(element, stream));
    EXPECT_EQ(kDeclaration + c.expected, stream.bytes);
  }
}

TEST(XmlWriter, AttributesSortedTextBeforeChildrenAndPrologUnescaped) {
  ZYNAdmXmlElement a(L"a");
  a.SetAttributeValue(L"y", L"2");
  a.SetAttributeValue(L"x", L"1");
  a.AddChild(ZYNAdmXmlElement(L"b"));
  RecordingStream plain, withText;
  ZYNAdmXmlParser::GetXml(a, plain);
  EXPECT_EQ(kDeclaration + "<a x=\"1\" y=\"2\"><b/></a>", plain.bytes);
  a.SetValue(L"t");
  ZYNAdmXmlParser::GetXml(a, Utf8("<!-- \xC3\xA9 & -->"), withText);
  EXPECT_EQ(kDeclaration + "<!-- \xC3\xA9 & --><a x=\"1\" y=\"2\">t<b/></a>", withText.bytes);
}

// A compact value is written from its bytes, a string through the unit rules: both must
// give the same bytes and the same Write calls wherever the buffer edge falls.
TEST(XmlWriter, CompactAndStringValuesWriteAlikeAtEveryBufferEdge) {
  const std::wstring hex = L"0123456789abcdef0123456789abcdef";
  const std::wstring values[] = {hex,
                                 hex + hex + L"f",
                                 L"/d000/e00/f0000001.binx'",
                                 L"/d000/e00/f0000001.b<n",
                                 L"/d000/e00/f000001\xE9.bin",
                                 L"/d000/e00/f0000001\"b",
                                 std::wstring(1024, L'q')};
  for (const std::wstring& value : values) {
    for (size_t pad = 4040 - value.size(); pad <= 4050; ++pad) {
      ZYNAdmXmlElement compact(L"e");
      compact.SetAttributeValue(L"a", DString(std::wstring(pad, L'p').c_str()));
      compact.SetAttributeValue(L"v", DString(value.c_str()));
      ZYNAdmXmlElement strings = compact.Clone(0);
      strings.GetAttributeValueRef(L"v");  // a borrowed view makes it a string
      RecordingStream fromBytes, fromUnits;
      ZYNAdmXmlParser::GetXml(compact, fromBytes);
      ZYNAdmXmlParser::GetXml(strings, fromUnits);
      EXPECT_EQ(fromUnits.bytes, fromBytes.bytes);
      EXPECT_EQ(fromUnits.writes, fromBytes.writes) << pad;
    }
  }
}

TEST(XmlWriter, FailuresReturnZeroAndLeaveTheStreamOpen) {
  ZYNAdmXmlElement unnamedChild(L"r"), big(L"r");
  unnamedChild.AddChild(ZYNAdmXmlElement());
  big.SetValue(DString(std::wstring(5000, L'x').c_str()));
  struct Case {
    ZYNAdmXmlElement element;
    int openResult, shortAtWrite, result;
  } cases[] = {
      {ZYNAdmXmlElement(), 1, 0, 0},
      {unnamedChild, 1, 0, 0},
      {big, 0, 0, 0},
      {big, 1, 1, 0},
      {big, 1, 2, 0},
      {big, 1, 0, 1},
  };
  for (const Case& c : cases) {
    RecordingStream stream;
    stream.openResult = c.openResult;
    stream.shortAtWrite = c.shortAtWrite;
    EXPECT_EQ(c.result, ZYNAdmXmlParser::GetXml(c.element, stream));
    EXPECT_EQ(c.result, stream.closes);
  }
}

}  // namespace
