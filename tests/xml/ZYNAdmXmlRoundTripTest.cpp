#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "XmlTestSupport.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlHash.h"
#include "ZYNAdmXmlOutputFormatter.h"
#include "ZYNAdmXmlParser.h"
#include "support/ZYNTestTempTree.h"

using xmltest::RecordingStream;

namespace {

std::string sWrite(const ZYNAdmXmlElement& element, bool formatted) {
  RecordingStream file;
  ZYNAdmXmlOutputFormatter formatter(file);
  EXPECT_EQ(1, ZYNAdmXmlParser::GetXml(element, formatted ? static_cast<ZYNAdmOutputStream&>(formatter) : file));
  return file.bytes;
}

ZYNAdmXmlElement sParse(const std::string& bytes) {
  xmltest::MemoryInput input(bytes);
  ZYNAdmXmlElement root;
  EXPECT_EQ(1, ZYNAdmXmlParser::Parse(input, root));
  return root;
}

// Units that hit every quoting, escaping and name encoding rule.
const unsigned short kAlphabet[] = {'a',  'Z',  '0',  '_',  'x',   '-',   '.',    ':',    ' ',
                                    '"',  '\'', '<',  '>',  '&',   ';',   '#',    '/',    '=',
                                    '\t', '\n', '\r', 0xE9, 0x7FF, 0x800, 0xD83D, 0xDE00, 0xFFFF};

DString sRandomText(std::mt19937& random, int maxLength, unsigned short first = 0) {
  std::vector<unsigned short> units(random() % (maxLength + 1) + (first != 0));
  for (unsigned short& unit : units) unit = kAlphabet[random() % (sizeof kAlphabet / 2)];
  if (first != 0) units[0] = first;
  return DString(units.data(), static_cast<int>(units.size()));
}

ZYNAdmXmlElement sRandomTree(std::mt19937& random, int depth) {
  ZYNAdmXmlElement element(sRandomText(random, 8, 'n'));
  for (int i = random() % 4; i > 0; --i) {
    element.SetAttributeValue(sRandomText(random, 6, 'k'), sRandomText(random, 12));
  }
  // A text that opens with a line end is taken by the reader for indentation.
  if (random() % 2) element.SetValue(sRandomText(random, 12, 't'));
  for (int i = depth > 0 ? random() % 4 : 0; i > 0; --i) {
    element.AddChild(sRandomTree(random, depth - 1));
  }
  return element;
}

TEST(XmlRoundTrip, WrittenTreesReadBackToTheSameBytes) {
  std::mt19937 random(20240611);
  for (int round = 0; round < 300; ++round) {
    ZYNAdmXmlElement tree = sRandomTree(random, 3);
    const std::string compact = sWrite(tree, false);
    EXPECT_EQ(compact, sWrite(sParse(compact), false));
    EXPECT_EQ(compact, sWrite(sParse(sWrite(tree, true)), false));
  }
}

bool sSameUnits(const DString& a, const DString& b) {
  return a.Length() == b.Length() &&
         std::equal(a.ConvertToUCChar(), a.ConvertToUCChar() + a.Length(), b.ConvertToUCChar());
}

// Values an element keeps packed (Latin-1 bytes, hex nibbles, in the slot or behind it)
// beside ones it keeps as strings, in a block and past the 32 that turn it into a list.
TEST(XmlRoundTrip, PackedAndPlainValuesReadBackUnitForUnit) {
  const std::wstring hex = L"0123456789abcdef";
  const std::wstring values[] = {
      hex + hex + hex + hex,
      L"abc",
      L"1700000000",
      L"123456789012",
      L"1234567890123",
      L"abcdeg",
      L"abcdefg",
      L"ABCDEF",
      L"/d\xE9j\xE0/\xFF\x80.bin",
      L"q\"o'te<&>\t\n\r",
      L"\x4E2D\x6587",
      L"a\x100",
      std::wstring(1024, L'x'),
      std::wstring(1025, L'7'),
      L"",
  };
  const int kinds = static_cast<int>(sizeof values / sizeof values[0]);
  for (int count : {kinds, 40}) {
    ZYNAdmXmlElement element(L"e");
    std::vector<DString> expected;
    for (int i = 0; i < count; ++i) {
      expected.push_back(DString(values[i % kinds].c_str()));
      element.SetAttributeValue(DString::FromNum(100 + i, "%d"), expected.back());
    }
    element.SetAttributeValue(L"100", L"1");  // a packed value replaced in its slot
    expected[0] = L"1";
    ZYNAdmXmlElement clone = element.Clone(1);
    clone.SetAttributeValue(L"101", L"\x4E2D");
    clone.SetAttributeValue(L"110", L"00ff");
    const std::string bytes = sWrite(element, false);
    ZYNAdmXmlElement read = sParse(bytes);
    void* it = element.GetAttributes();
    const DString* view = nullptr;
    for (int i = 0; i < count; ++i) {
      DString name = DString::FromNum(100 + i, "%d");
      EXPECT_TRUE(sSameUnits(expected[i], element.GetAttributeValue(name))) << count << " " << i;
      EXPECT_TRUE(sSameUnits(expected[i], read.GetAttributeValue(name))) << count << " " << i;
      ASSERT_TRUE(element.NextAttribute(it, view) != nullptr);
      EXPECT_TRUE(sSameUnits(expected[i], *view)) << count << " " << i;
    }
    EXPECT_EQ(bytes, sWrite(element, false));  // the same once every value is a string
    EXPECT_EQ(bytes, sWrite(read, false));
    EXPECT_NE(bytes, sWrite(clone, false));
  }
}

// The units at the edges of each class the eight- and sixteen-unit steps test (hex digits,
// escapes, quotes, controls, bytes beyond ASCII), at every offset inside and across a
// step: in a run of hex digits, in a plain run, and a `'` with a `"` after it.
TEST(XmlRoundTrip, EdgeUnitsAtEveryOffsetReadBack) {
  const std::u16string probes = u"g/:`G@\t\r\"'<&>\x7F\x80\xFF\x100\x800";
  std::vector<std::u16string> values;
  for (size_t length = 1; length <= 40; ++length) {
    std::u16string hex, plain(length, u'x');
    for (size_t i = 0; i < length; ++i) hex += u"0123456789abcdef"[i % 16];
    for (size_t at = 0; at < length; ++at) {
      for (char16_t probe : probes) {
        for (std::u16string value : {hex, plain}) values.push_back(value.replace(at, 1, 1, probe));
      }
      for (size_t later = at + 1; later < length; ++later) {
        values.push_back(plain);
        values.back()[at] = u'\'';
        values.back()[later] = u'"';
      }
    }
  }
  for (std::u16string const& units : values) {
    DString value(reinterpret_cast<const unsigned short*>(units.data()), static_cast<int>(units.size()));
    ZYNAdmXmlElement element(L"e");
    element.SetAttributeValue(L"v", value);
    ASSERT_TRUE(sSameUnits(value, element.GetAttributeValue(L"v"))) << ZYNTestS(value);
    const std::string bytes = sWrite(element, false);
    ASSERT_TRUE(sSameUnits(value, sParse(bytes).GetAttributeValue(L"v"))) << bytes;
    ASSERT_EQ(bytes.find_first_of("\t\n\r"), std::string::npos) << bytes;  // kept raw, a reader would change them
  }
}

std::string sReplace(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// Edits that must break the seal are the hash tests' business; here, what must not.
TEST(XmlRoundTrip, SealSurvivesLayoutAndComments) {
  ZYNAdmXmlElement media(L"Media");
  for (int i = 0; i < 50; ++i) {
    ZYNAdmXmlElement file(L"File");
    file.SetAttributeValue(L"path", DString(std::to_wstring(i).c_str()) + L"/caf\xE9 \"x\"");
    file.SetAttributeValue(L"timestamp", L"1700000000");
    media.AddChild(file);
  }
  ASSERT_EQ(1, ZYNAdmXmlHash::Hash(media));
  const std::string file = sWrite(media, true), head = xmltest::kDeclaration;
  const std::string layouts[] = {
      file,
      sWrite(media, false),
      sReplace(file, "\n\t", "\n    \t  "),
      sReplace(file, head, head + "\n<!-- <File a=\"1\"/> -->"),
      sReplace(file, "\n</Media>", "\n\t<!-- end -->\n</Media>"),
  };
  for (const std::string& bytes : layouts) {
    ZYNAdmXmlElement read = sParse(bytes);
    EXPECT_EQ(1, ZYNAdmXmlHash::Check(read)) << bytes.substr(0, 200);
  }
}

}  // namespace
