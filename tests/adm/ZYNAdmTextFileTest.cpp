#include <gtest/gtest.h>

#include "ZYNAdmIFile.h"
#include "ZYNAdmInputText.h"
#include "ZYNAdmOFile.h"
#include "ZYNAdmOutputStreamBuffer.h"
#include "ZYNAdmOutputText.h"
#include "support/ZYNTestTempTree.h"

struct ZYNTestLine {
  std::string text;
  bool end;
};

static std::vector<ZYNTestLine> sReadAll(std::string const& path) {
  ZYNAdmIFile input(ZYNTestD(path));
  std::vector<ZYNTestLine> lines;
  if (input.Open() != ZYN_S_OK) return lines;
  DString line;
  while (input.GetLine(line) == ZYN_S_OK) {
    lines.push_back({ZYNTestS(line), input.ReachedEOF() != 0});
    if (input.ReachedEOF()) break;
  }
  input.Close();
  return lines;
}

TEST(ZYNAdmTextFile, LinesDropCarriageReturnsAndFlagTheLastOne) {
  // The last line arrives with end reached.
  struct Case {
    std::string content;
    std::vector<std::string> lines;
  } cases[] = {
      {"a\r\nb", {"a", "b"}},
      {"", {""}},
      {"a\n", {"a", ""}},
      {"x\ry\r\n\n", {"xy", "", ""}},
  };
  ZYNTestTempTree tree;
  for (Case const& c : cases) {
    std::vector<ZYNTestLine> got = sReadAll(tree.File("f", c.content));
    ASSERT_EQ(c.lines.size(), got.size()) << c.content;
    for (size_t i = 0; i < got.size(); ++i) {
      EXPECT_EQ(c.lines[i], got[i].text);
      EXPECT_EQ(i + 1 == got.size(), got[i].end);
    }
  }
  // Bytes are widened one by one, with no character set applied.
  ZYNAdmIFile input(ZYNTestD(tree.File("f", "\xe9\n")));
  ASSERT_EQ(ZYN_S_OK, input.Open());
  DString line;
  EXPECT_EQ(ZYN_S_OK, input.GetLine(line));
  ASSERT_EQ(1, line.Length());
  EXPECT_EQ(0xE9, line[0]);
}

TEST(ZYNAdmTextFile, MillionByteLineArrivesWhole) {
  ZYNTestTempTree tree;
  std::string longLine(1000000, 'q');
  std::vector<ZYNTestLine> got = sReadAll(tree.File("f", longLine + "\nz"));
  ASSERT_EQ(2u, got.size());
  EXPECT_EQ(longLine, got[0].text);
  EXPECT_EQ("z", got[1].text);
}

TEST(ZYNAdmTextFile, ReadFailuresAndMissingStreamsAreResultsOnly) {
  DString line(L"stale");
  EXPECT_EQ(-1, ZYNAdmInputText(nullptr).ReadLine(line, 10));
  EXPECT_TRUE(line.IsEmpty());
  EXPECT_EQ(0, ZYNAdmInputText(nullptr).Open());
  EXPECT_EQ(ZYN_E_FAIL, ZYNAdmOutputText(nullptr).WriteLine(DString(L"x")));

  ZYNAdmIFile unopened(DString(L"/nonexistent/zyn"));
  EXPECT_EQ(ZYN_E_FAIL, unopened.Open());
  EXPECT_EQ(ZYN_E_FAIL, unopened.GetLine(line));
  EXPECT_EQ(1, unopened.GetLineFailed());
  EXPECT_TRUE(ZYNAdmError::IsStackEmpty());
}

TEST(ZYNAdmTextFile, WriteLineEndsEachLineOnce) {
  ZYNAdmOutputStreamBuffer buffer;
  ZYNAdmOutputText text(&buffer);
  EXPECT_EQ(1, text.Open());
  for (wchar_t const* line : {L"a", L"b\n", L""}) EXPECT_EQ(ZYN_S_OK, text.WriteLine(DString(line)));
  unsigned char* data = nullptr;
  int size = 0;
  ASSERT_EQ(1, buffer.GetBuffer(data, size));
  EXPECT_EQ("a\nb\n\n", std::string(reinterpret_cast<char*>(data), static_cast<size_t>(size)));
  std::free(data);

  ZYNTestTempTree tree;
  ZYNAdmOFile file(ZYNTestD(tree.Root() + "\\f"));  // the name is slash-normalised
  EXPECT_EQ(tree.Path("f"), ZYNTestS(file.GetFilename()));
  ASSERT_EQ(ZYN_S_OK, file.Open());
  EXPECT_EQ(ZYN_S_OK, file.WriteLine(DString(L"x")));
  EXPECT_EQ(ZYN_S_OK, file.Close());
  EXPECT_EQ("x\n", tree.Read("f"));
}
