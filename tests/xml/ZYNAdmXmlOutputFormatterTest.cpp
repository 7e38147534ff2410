#include <gtest/gtest.h>

#include <string>

#include "XmlTestSupport.h"
#include "ZYNAdmXmlOutputFormatter.h"

using xmltest::RecordingStream;

namespace {

std::string sFormat(std::string compact, size_t piece = 1 << 30) {
  RecordingStream target;
  ZYNAdmXmlOutputFormatter formatter(target);
  EXPECT_EQ(1, formatter.Open());
  for (size_t at = 0; at < compact.size(); at += piece) {
    int count = static_cast<int>(std::min(piece, compact.size() - at));
    EXPECT_EQ(count, formatter.Write(reinterpret_cast<unsigned char*>(&compact[at]), count));
  }
  EXPECT_EQ(1, formatter.Close());
  return target.bytes;
}

// Passes the 8192-byte output buffer several times.
std::string sLargeCompact() {
  std::string doc = "<?xml version=\"1.0\" encoding=\"utf-8\" ?><M a='\"'><!-- c > -->";
  for (int i = 0; i < 400; ++i) doc += "<CD><F p=\"/" + std::to_string(i) + "\"/><T>t &lt;</T></CD>";
  return doc + "</M>";
}

TEST(XmlFormatter, PutsEachTagThatFollowsATagOnItsOwnIndentedLine) {
  struct Case {
    std::string compact, expected;
  } cases[] = {
      {"<?xml version=\"1.0\" ?><a x=\"1\"><b/><c>t</c></a>",
       "<?xml version=\"1.0\" ?>\n<a x=\"1\">\n\t<b/>\n\t<c>t</c>\n</a>"},
      {"<a><b><c/></b></a>", "<a>\n\t<b>\n\t\t<c/>\n\t</b>\n</a>"},
      {"<a><!-- x --><b/></a>", "<a><!-- x -->\n\t<b/>\n</a>"},
      {"<a>text<b/>more</a>", "<a>text<b/>more</a>"},
      {"<r><e v=\"a/>b\"/><f/></r>", "<r>\n\t<e v=\"a/>b\"/>\n<f/>\n</r>"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.expected, sFormat(c.compact)) << c.compact;
}

TEST(XmlFormatter, PiecesOfEverySizeGiveTheSameOutput) {
  const std::string small = "<?xml a=\"1\" ?><a x=\"1\"><b y='\"'/><c>t</c><!-- <d/> --></a>";
  for (size_t piece = 1; piece <= small.size(); ++piece) {
    EXPECT_EQ(sFormat(small), sFormat(small, piece)) << piece;
  }
  const std::string large = sLargeCompact(), whole = sFormat(large);
  for (size_t piece : {1, 3, 4096, 8191, 8192, 8193}) EXPECT_EQ(whole, sFormat(large, piece));
}

TEST(XmlFormatter, AShortWriteFailsTheCallAndDropsTheRest) {
  std::string large = sLargeCompact();
  struct Case {
    int count, shortAtWrite;
    size_t writes;
  } cases[] = {{static_cast<int>(large.size()), 1, 2}, {static_cast<int>(large.size()), 2, 3}, {100, 1, 1}};
  for (const Case& c : cases) {
    RecordingStream target;
    target.shortAtWrite = c.shortAtWrite;
    ZYNAdmXmlOutputFormatter formatter(target);
    formatter.Open();
    EXPECT_EQ(-1, formatter.Write(reinterpret_cast<unsigned char*>(&large[0]), c.count));
    EXPECT_EQ(c.writes, target.writes.size());
  }
}

}  // namespace
