#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "XmlTestSupport.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlHash.h"
#include "ZYNAdmXmlOutputFormatter.h"
#include "ZYNAdmXmlParser.h"

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
const unsigned short kAlphabet[] = {'a', 'Z', '0', '_', 'x', '-', '.', ':', ' ', '"', '\'',
                                    '<', '>', '&', ';', '#', '/', '=', '\t', '\n', '\r',
                                    0xE9, 0x7FF, 0x800, 0xD83D, 0xDE00, 0xFFFF};

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
