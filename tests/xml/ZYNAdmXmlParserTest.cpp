#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "XmlTestSupport.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlParser.h"

namespace {

std::string sText(const DString& text) {
  std::string out;
  for (int i = 0; i < text.Length(); ++i) {
    const unsigned unit = static_cast<unsigned short>(text[i]);
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\u%04X", unit);
    out += unit >= 0x20 && unit < 0x7F ? std::string(1, static_cast<char>(unit)) : escaped;
  }
  return out;
}

// name[attr=value,...]{value}(children), enough to tell any two parsed trees apart.
std::string sDump(const ZYNAdmXmlElement& element) {
  if (element.IsEmpty()) return "-";
  std::string out = sText(element.GetName());
  void* at = element.GetAttributes();
  if (at != nullptr) out += "[";
  while (at != nullptr) {
    const DString name = element.GetAttributeName(at);
    out += sText(name) + "=" + sText(element.GetAttributeValue(name));
    out += at ? "," : "]";
  }
  if (!element.GetValue().IsEmpty()) out += "{" + sText(element.GetValue()) + "}";
  void* child = element.GetChildren();
  if (child != nullptr) out += "(";
  while (child != nullptr) {
    out += sDump(element.GetChild(child));
    out += child ? " " : ")";
  }
  return out;
}

std::string sParse(const std::string& bytes, int chunk = 0, int* result = nullptr) {
  xmltest::MemoryInput input(bytes, chunk);
  ZYNAdmXmlElement root(DString(L"untouched"));
  const int parsed = ZYNAdmXmlParser::Parse(input, root);
  if (result != nullptr) *result = parsed;
  return (parsed ? "" : "FAILED ") + sDump(root);
}

struct Case {
  const char* input;
  const char* tree;
};

const Case kTrees[] = {
    {"<?xml version=\"1.0\" encoding=\"utf-8\" ?><a x=\"1\"><b/></a>", "a[x=1](b)"},
    {"<a>\n\t<b/>\n</a>", "a(b)"},
    {"<a>x<b/>y</a>", "a{x}(b)"},
    {"<a>\n\t<b/>y</a>", "a{y}(b)"},
    {"<a>  <b/></a>", "a{  }(b)"},
    {"<a>\r\n</a>", "a{\\u000D\\u000A}"},
    {"<a>\n\tx \n</a>", "a{x \\u000A}"},
    {"<a>&lt;&gt;&amp;&quot;&apos;&#65;&amp;lt;&</a>", "a{<>&\"&apos;&#65;&lt;&}"},
    {"<a v=\"&lt;&#xA;&#xa;&#x9;&#xD;&#xd;&#65;&apos;&#XA;\"/>",
     "a[v=<\\u000A\\u000A\\u0009\\u000D\\u000D&#65;&apos;&#XA;]"},
    {"<a><!-- > \" ' --><!----><b/></a>", "a(b)"},
    {"<a><!-- x -- > y --><b/></a>", "a(b)"},
    {"<a><!-><b/>x</a>", "a{x}"},
    {"<a><!DOCTYPE a \">\"><b/></a>", "a(b)"},
    {"<a><![CDATA[x>y]]><b/></a>", "a{y]]>}(b)"},
    {"<a v=\"x>y\" w='\"'/>", "a[v=x>y,w=\"]"},
    {"<e a b=\"1\"/>", "e[a=1]"},
    {"<e a=1 b=\"2\"/>", "e[a=2]"},
    {"<e a=x1x b = '2' c=\"3\"d=\"4\"/>", "e[a=1,b=2,c=3]"},
    {"<e a=\"1\" a=\"2\"/>", "e[a=2]"},
    {"<e b=\"1\" a=\"&lt;2\" c=\"3\" a=\"4&amp;\"/>", "e[a=4&,b=1,c=3]"},
    {"<e a= \"1\" b=\"\" c=/>", "e[a=1,b=]"},
    {"<e a=//>", "e"},
    {"<e\ta\n=\r\"v\"  />", "e[a=v]"},
    {"<_x0041_b _x0031_x=\"1\" _x41_=\"2\" __x0061__=\"3\"/>", "Ab[1x=1,_a_=3,_x41_=2]"},
    {"<_x004g_ _x00G1_=\"1\" _x:041_=\"2\" _x/041_=\"3\" _x@041_=\"4\" _x`041_=\"5\"/>",
     "_x004g_[_x/041_=3,_x00G1_=1,_x:041_=2,_x@041_=4,_x`041_=5]"},
    {"<a>\xF0\x9F\x98\x80\xC3\xA9\xE2\x82\xAC</a>", "a{?\\u00E9\\u20AC}"},
    {"<a>\xE9</a><b/>", "a{\\u7EAFa>}(b)"},
    {"<a>\x80\xBF</a>", "a{\\u0080\\u00BF}"},
    {"<a>xxxxx\xE9</a><b/>", "a{xxxxx\\u7EAFa>}(b)"},  // a lone lead byte where an eight-byte step starts
    {"<e a='''''''''' b='1'/>", "e['''''''=1,a=]"},    // a step of eight delimiters
    {"\xEF\xBB\xBFx<a/>", "a"},
    {"<a><b><c/></b></a>", "a(b(c))"},
    {"<a><b><c/>", "a"},
    {"<a><b></a></b>", "a(b)"},
    {"<a/><b/>", "b"},
    {"<a/></x></y><b/>", "b"},
    {"</x><a><b/></a>", "a(b)"},
    {"< x=\"1\"><>t</>", "[x=1]({t})"},
    {"", "FAILED untouched"},
    {"no element at all", "-"},
    {"<a><b/><c", "FAILED untouched"},
    {"<a b=\">", "FAILED untouched"},
    {"<a><!-- -> ", "FAILED untouched"},
    {"<a>\xC3", "a"},
};

TEST(ZYNAdmXmlParserTest, ParseBuildsTheTreeWithItsTolerance) {
  for (const Case& c : kTrees) EXPECT_EQ(sParse(c.input), c.tree) << c.input;
}

TEST(ZYNAdmXmlParserTest, FailuresLeaveRootUntouchedAndCloseAnOpenedStream) {
  xmltest::MemoryInput unopenable("<a/>");
  unopenable.openResult = 0;
  ZYNAdmXmlElement root(DString(L"kept"));
  EXPECT_EQ(ZYNAdmXmlParser::Parse(unopenable, root), 0);
  EXPECT_EQ(unopenable.closes, 0);
  for (const char* input : {"", "<a><b", "<a>x<b/>"}) {
    xmltest::MemoryInput stream(input);
    const int expected = std::string(input).find("<b/>") != std::string::npos;
    EXPECT_EQ(ZYNAdmXmlParser::Parse(stream, root), expected) << input;
    EXPECT_EQ(stream.closes, 1) << input;
  }
  EXPECT_EQ(sText(root.GetName()), "a");
}

// Documents of ASCII bytes, which no cut of the input can garble.
const char* const kSplitDocuments[] = {
    "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<Media cdid=\"1\" checkerVersion=\"1.1\">"
    "\n\t<RelData/>\n\t<!-- a > \"comment' -->\n\t<CDs>\n\t\t<CD>\n\t\t\t<File hash=\"ab\" "
    "path=\"/x&amp;y&#xA;\" timestamp='12'/>\n\t\t\t<File path=\"a>b\" q=x1x/>\n\t\t</CD>"
    "\n\t</CDs>\n\t<_x0041_>t&lt;x</_x0041_>\n</Media>",
    "<a><!x><b v=\"1\"/><!DOCTYPE y 'q>'><?pi \">\"?><c>\n   </c><d a b=\"2\"/></a>",
};

TEST(ZYNAdmXmlParserTest, ParseGivesTheSameTreeWhateverTheReadSizes) {
  for (const char* document : kSplitDocuments) {
    const std::string whole = sParse(document);
    ASSERT_EQ(whole.find("FAILED"), std::string::npos);
    for (int chunk = 1; chunk <= static_cast<int>(std::string(document).size()); ++chunk) {
      ASSERT_EQ(sParse(document, chunk), whole) << "chunk " << chunk;
    }
  }
}

// Leading text shifts the document so that the end of the first 4096 units, where the
// buffer is refilled, falls on each of its positions in turn.
TEST(ZYNAdmXmlParserTest, ParseGivesTheSameTreeWhereverTheBufferIsRefilled) {
  for (const char* document : kSplitDocuments) {
    const std::string tail(document);
    const std::string whole = sParse(tail);
    for (size_t pad = 4096 - tail.size(); pad <= 4096; ++pad) {
      ASSERT_EQ(sParse(std::string(pad, ' ') + tail), whole) << "pad " << pad;
      ASSERT_EQ(sParse(std::string(pad, ' ') + tail, 1000), whole) << "pad " << pad;
    }
  }
}

TEST(ZYNAdmXmlParserTest, LongTextTagsAndDeepNestingArriveWhole) {
  const std::string text(10000, 't');
  const std::string value(9000, 'v');
  EXPECT_EQ(sParse("<a>" + text + "<b x=\"" + value + "\"/></a>"), "a{" + text + "}(b[x=" + value + "])");
  const std::string blanks(300, ' ');
  EXPECT_EQ(sParse("<e a=1" + blanks + "\"v\" b=2\"w\" c=3" + blanks + "/>"), "e[a=v,b=w]");
  std::string nested, closes, expected = "n";
  for (int i = 0; i < 45; ++i) {
    nested += "<n>";
    closes += "</n>";
    expected = "n(" + expected + ")";
  }
  EXPECT_EQ(sParse(nested + "<n/>" + closes), expected);
}

// A UTF-8 sequence cut by the end of a Read block, or of a short Read, decodes whole; one
// cut by the end of the input is dropped.
TEST(ZYNAdmXmlParserTest, SequencesCutAtBlockEndsDecodeWhole) {
  const std::string pad(4092, ' ');
  const struct {
    std::string bytes;
    int chunk;
    const char* tree;
  } cases[] = {
      {"<a>\xC3\xA9</a>", 4, "a{\\u00E9}"},         {"<a>\xC3\xA9</a>", 3, "a{\\u00E9}"},
      {"<a>\xE2\x82\xAC</a>", 4, "a{\\u20AC}"},     {"<a>\xE2\x82\xAC</a>", 5, "a{\\u20AC}"},
      {"<a>\xE2\x82\xAC</a>", 1, "a{\\u20AC}"},     {pad + "<a>\xC3\xA9</a>", 0, "a{\\u00E9}"},
      {pad + "<a>x\xC3\xA9</a>", 0, "a{x\\u00E9}"}, {"<a/>\xE2\x82", 0, "a"},
  };
  for (const auto& c : cases) EXPECT_EQ(sParse(c.bytes, c.chunk), c.tree) << c.chunk;
}

// A read fault fails the parse even where the end of the input would have completed it.
TEST(ZYNAdmXmlParserTest, ReadFaultIsAFailureNotTheEnd) {
  for (int failFrom : {2, 3}) {
    xmltest::MemoryInput input("<a/><b/>", 4);
    input.failFrom = failFrom;
    ZYNAdmXmlElement root;
    EXPECT_EQ(ZYNAdmXmlParser::Parse(input, root), 0) << failFrom;
    EXPECT_EQ(input.closes, 1);
  }
}

TEST(ZYNAdmXmlParserTest, ParseReadsAReferenceOfManyFiles) {
  std::string xml = "<Media cdid=\"1\"><CDs><CD>";
  for (int i = 0; i < 20000; ++i) {
    xml += "\n<File hash=\"0123456789abcdef\" path=\"/d/f" + std::to_string(i) + "\" timestamp=\"1\"/>";
  }
  xmltest::MemoryInput input(xml + "</CD></CDs></Media>");
  ZYNAdmXmlElement root;
  ASSERT_EQ(ZYNAdmXmlParser::Parse(input, root), 1);
  void* at = root.GetChildren();
  const ZYNAdmXmlElement cds = root.GetChild(at);
  at = cds.GetChildren();
  const ZYNAdmXmlElement cd = cds.GetChild(at);
  int files = 0;
  std::string last;
  for (void* file = cd.GetChildren(); file != nullptr; ++files) {
    last = sText(cd.GetChild(file).GetAttributeValue(DString(L"path")));
  }
  EXPECT_EQ(files, 20000);
  EXPECT_EQ(last, "/d/f19999");
}

}  // namespace

namespace {

// Past a few thousand leaves, other threads read them where the parse left them: the tree
// is the one read alone, leaves of every kind among nested elements, one longer than a
// buffer among them, whatever the read sizes.
TEST(XmlParallelParse, LeavesReadOnOtherThreadsMakeTheSameTree) {
  std::vector<const Case*> leaves;
  for (const Case& c : kTrees) {
    const std::string input = c.input;
    if (input.size() > 2 && input[0] == '<' && input.compare(input.size() - 2, 2, "/>") == 0 &&
        std::count(input.begin(), input.end(), '<') == 1) {
      leaves.push_back(&c);
    }
  }
  ASSERT_GE(leaves.size(), 5u);
  std::string xml = "<r>";
  std::string tree = "r(";
  for (int i = 0; i < 3 * 4096 + 7; ++i) {
    const Case& leaf = *leaves[static_cast<size_t>(i) % leaves.size()];
    if (i % 1000 == 999) {
      xml += "<b>\n\t";
      tree += "b(";
    }
    xml += leaf.input;
    tree += leaf.tree;
    if (i == 6000) {
      const std::string value(70000 + i, 'v');
      xml += "<long v=\"" + value + "\"/>";
      tree += " long[v=" + value + "]";
    }
    if (i % 1000 == 999) {
      xml += "</b>";
      tree += ")";
    }
    tree += " ";
  }
  tree.back() = ')';
  for (int chunk : {0, 7, 4096}) {
    EXPECT_EQ(sParse(xml + "</r>", chunk), tree) << chunk;
  }
}

}  // namespace
