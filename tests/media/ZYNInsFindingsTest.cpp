// The findings files below the executable: every kind and every awkward name written by
// the JSON Lines and JUnit writers, then read back by real parsers (python3's json, jq,
// xmllint against the JUnit schema of tests/support).
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "DStrings.h"
#include "ZYNInsFindings.h"
#include "ZYNInsFindingsJUnit.h"
#include "ZYNInsFindingsJson.h"
#include "support/ChildProcess.h"
#include "support/OptionsForTests.h"
#include "support/TestText.h"
#include "support/ZYNTestTempTree.h"

namespace {

struct Row {
  ZYNInsFindingKind kind;
  int volume;
  std::u16string path;
  std::string pathRead;  // what a parser gives back, UTF-8
  std::string hex;       // path_hex, where the path has bytes that aren't text
  std::string expected;
  std::string found;
};

const std::string kDigest(64, 'a');
const std::string kOther(64, 'b');

// Every kind once; the names carry a quote, a backslash, a tab, a control character,
// non-ASCII text and a byte the code page refused (the unit U+DCFF stands for 0xFF).
const std::vector<Row> kRows = {
    {ZYNInsFindingMissing, 1, u"/a \"quoted\" name", "/a \"quoted\" name", "", "", ""},
    {ZYNInsFindingAltered, 1, u"/back\\slash", "/back\\slash", "", kDigest, kOther},
    {ZYNInsFindingTime, 2, u"/tab\there", "/tab\there", "", "1600000000", "1600003601"},
    {ZYNInsFindingUnexpected, 2, u"/caf\u00e9/\u6f22", "/caf\xc3\xa9/\xe6\xbc\xa2", "", "", ""},
    {ZYNInsFindingUnreadable, 3, u"/bad\xdcff\x01", "/bad\xef\xbf\xbd\x01", "2f626164ff01", "", ""},
    {ZYNInsFindingUnidentified, 2, u"", "", "", "", ""},
    {ZYNInsFindingReference, 1, u"/m/1//0data/MediaContent.xml", "/m/1//0data/MediaContent.xml", "", "", ""},
    {ZYNInsFindingCancelled, 0, u"", "", "", "", ""},
    {ZYNInsFindingRefused, 0, u"", "", "", "", ""},
    {ZYNInsFindingSignature, 0, u"", "", "", "", ""},
    {ZYNInsFindingError, 0, u"", "", "", "", ""},
};

DString D(std::string const& ascii) { return ZYNTestD(ascii); }

// One line per finding record: its fields as the parser read them, split by 0x1f.
const char kPython[] =
    "import json,sys\n"
    "for line in open(sys.argv[1], encoding='utf-8'):\n"
    "  r = json.loads(line)\n"
    "  if r['record'] != 'finding': continue\n"
    "  f = [r['kind'], str(r['volume'] or 0), r['path'] or '', r.get('path_hex', ''), r['expected'] or '',\n"
    "       r['found'] or '', r['sentence']]\n"
    "  sys.stdout.buffer.write('\\x1f'.join(f).encode('utf-8') + b'\\n')\n";
const char kJq[] =
    "select(.record == \"finding\") | [.kind, (.volume // 0 | tostring), (.path // \"\"), (.path_hex // \"\"), "
    "(.expected // \"\"), (.found // \"\"), .sentence] | join(\"\\u001f\")";

bool Have(char const* tool) {
  return RunChild({"/bin/sh", "-c", std::string("command -v ") + tool + " >/dev/null"}).status == 0;
}

class FindingsFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    Options::ResetValues();
    ZYNInsFindings::Reset();
    ZYNInsFindings::KeepAll(true);
    for (Row const& row : kRows) {
      DString sentence = D(std::string("[CD] sentence of ") + ZYNTestS(ZYNInsFindings::KindName(row.kind)) + "\n");
      ZYNInsFindings::Add(
          ZYNInsFinding{row.kind, row.volume, FromU16(row.path), D(row.expected), D(row.found), sentence});
    }
    ZYNInsFindings::StartVolume(1);
    ZYNInsFindings::FileRead(1, 10);
    ZYNInsFindings::FileRead(1, 5);
    facts.start = D("2026-01-31T23:59:59Z");
    facts.status = 2;
  }
  void TearDown() override {
    ZYNInsFindings::Reset();
    Options::ResetValues();
  }
  std::string Expected() const {
    std::string lines;
    for (Row const& row : kRows) {
      lines += std::string(ZYNTestS(ZYNInsFindings::KindName(row.kind))) + "\x1f" + std::to_string(row.volume) +
               "\x1f" + row.pathRead + "\x1f" + row.hex + "\x1f" + row.expected + "\x1f" + row.found +
               "\x1f[CD] sentence of " + ZYNTestS(ZYNInsFindings::KindName(row.kind)) + "\n";
    }
    return lines;
  }
  typedef ZYNInsMediaCheckerOptions Options;
  ZYNInsRunFacts facts;
  ZYNTestTempTree tree;
};

}  // namespace

TEST_F(FindingsFiles, JsonLinesReadBackByPythonAndJqGiveEveryFieldOfEveryKind) {
  std::string json = ZYNInsFindingsJson::Text(facts);
  std::string file = tree.File("f.jsonl", json);
  if (!Have("python3")) GTEST_SKIP() << "python3 is not installed";
  ChildResult python = RunChild({"/usr/bin/env", "python3", "-c", kPython, file});
  EXPECT_EQ(0, python.status) << python.err;
  EXPECT_EQ(Expected(), python.out);

  // The run first, the summary last, with a count for every kind.
  ChildResult records = RunChild({"/usr/bin/env", "python3", "-c",
                                  "import json,sys\nr=[json.loads(l) for l in open(sys.argv[1])]\n"
                                  "print(r[0]['record'], r[0]['schema'], r[-1]['record'], r[-1]['verdict'], "
                                  "r[-1]['status'], sum(r[-1]['counts'].values()), r[-1]['files'], r[-1]['bytes'])",
                                  file});
  EXPECT_EQ("run 1 summary CANCELLED 2 11 2 15\n", records.out) << records.err;

  if (!Have("jq")) GTEST_SKIP() << "jq is not installed";
  ChildResult jq = RunChild({"/usr/bin/env", "jq", "-r", kJq, file});
  EXPECT_EQ(0, jq.status) << jq.err;
  EXPECT_EQ(Expected(), jq.out);
}

TEST_F(FindingsFiles, JUnitIsValidAgainstTheSchemaWithAFailingCasePerFinding) {
  std::string file = tree.File("f.xml", ZYNInsFindingsJUnit::Text(facts));
  if (!Have("xmllint")) GTEST_SKIP() << "xmllint is not installed";
  std::string schema = std::string(ZYN_SOURCE_DIR) + "/tests/support/junit.xsd";
  ChildResult valid = RunChild({"/usr/bin/env", "xmllint", "--noout", "--schema", schema, file});
  EXPECT_EQ(0, valid.status) << valid.err;
  // Six findings about the run in its own suite; files of volume 1: 2 read, 1 altered.
  ChildResult counts =
      RunChild({"/usr/bin/env", "xmllint", "--xpath",
                "concat(count(//failure), ' ', count(//testsuite[@name='run']/testcase/failure), ' ', "
                "//testsuite[@name='CD1']/testcase[not(failure)]/@name, ' ', //testcase[failure/@type='time']/@name)",
                file});
  EXPECT_EQ("11 6 1 files intact /tab\there\n", counts.out) << counts.err;
}

// Without a findings file the console's first findings and the counts are all that is
// kept: a check of a large, badly damaged media makes no list of every finding.
TEST_F(FindingsFiles, WithoutAFindingsFileOnlyWhatTheConsoleShowsIsKept) {
  ZYNInsFindings::Reset();
  for (int i = 0; i < 100; ++i) ZYNInsFindings::Add(ZYNInsFindingMissing, 1, DStrings(D("1"), D("/x")), D("s\n"));
  EXPECT_EQ(static_cast<size_t>(ZYNInsFindings::kConsoleLines + 1), ZYNInsFindings::List().size());
  EXPECT_EQ(100, ZYNInsFindings::Count(ZYNInsFindingMissing));
}
