// -json, -junit and the findings on standard error, as a CI job meets them: the real
// executable on damaged media, its files read back by python3's json and xmllint.
#include <gtest/gtest.h>
#include <utime.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "ZYNAdmInputFile.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlParser.h"
#include "ZYNInsFindingsJson.h"
#include "support/ChildProcess.h"
#include "support/ZYNTestTempTree.h"

namespace fs = std::filesystem;

namespace {

// Names as a UTF-8 locale with the language table reads them: text, and bytes that are not.
const std::vector<std::string> kEnv = {"LANG=C.UTF-8", "LC_ALL=C.UTF-8",
                                       "QRTReffilesPath=" + std::string(ZYN_SOURCE_DIR) + "/reffiles"};
const std::string kOdd = "q\"b\\t\t\xc3\xa9";  // quote, backslash, tab, é
const std::string kBad = "bad\xff";            // a byte that is no UTF-8
const std::string kSchema = std::string(ZYN_SOURCE_DIR) + "/tests/support/junit.xsd";

bool Have(char const* tool) {
  return RunChild({"/bin/sh", "-c", std::string("command -v ") + tool + " >/dev/null"}).status == 0;
}

// Every record of a JSON Lines file through python3: "record kind volume status" per line,
// the sentences of the findings apart.
ChildResult Records(std::string const& file) {
  return RunChild({"/usr/bin/env", "python3", "-c",
                   "import json,sys\n"
                   "for l in open(sys.argv[1], encoding='utf-8'):\n"
                   "  r = json.loads(l)\n"
                   "  print(r['record'], r.get('kind', r.get('verdict', r.get('mode', ''))), r.get('volume'),"
                   " r.get('status', r.get('files', '')), r.get('path_hex', ''))\n",
                   file});
}

std::string Sentences(std::string const& file) {
  return RunChild({"/usr/bin/env", "python3", "-c",
                   "import json,sys\n"
                   "for l in open(sys.argv[1], encoding='utf-8'):\n"
                   "  r = json.loads(l)\n"
                   "  if r['record'] == 'finding': sys.stdout.buffer.write((r['sentence'] + '\\n').encode())\n",
                   file})
      .out;
}

// The report's ZirkError, in the UTF-8 the JSON gives: a unit standing for a byte reads
// as U+FFFD there.
std::string ReportFindings(std::string const& report) {
  ZYNAdmInputFile input(ZYNTestD(report));
  ZYNAdmXmlElement root;
  if (ZYNAdmXmlParser::Parse(input, root) != 1) return "unparsable";
  for (ZYNAdmXmlElement const& step : root.Children()) {
    for (ZYNAdmXmlElement const& info : step.Children()) {
      if (ZYNTestS(info.GetName()) != "ZirkError") continue;
      DString value = info.GetAttributeValue(DString(L"Value"));
      std::string text;
      for (int i = 0; i < value.Length(); ++i) ZYNInsAppendUtf8(text, value[i]);
      return text;
    }
  }
  return "";
}

class FindingsCli : public ::testing::Test {
 public:
  void SetUp() override {
    if (!Have("python3") || !Have("xmllint")) GTEST_SKIP() << "python3 and xmllint read the files back";
    for (int i = 0; i < 22; ++i) Put("1/f" + std::to_string(100 + i), "x");
    Put("1/sub/" + kOdd, "odd");
    Put("1/sub/" + kBad, "bad");
    Put("2/two", "y");
  }
  void Put(std::string const& rel, std::string const& content) {
    fs::create_directories(fs::path(tree.Path("m/" + rel)).parent_path());
    std::string path = tree.File("m/" + rel, content);
    struct utimbuf times = {1600000000, 1600000000};
    utime(path.c_str(), &times);
  }
  ChildResult Zyn(std::vector<std::string> args, std::string const& input = "") {
    args.insert(args.begin(), {"-CD1Path", tree.Path("m/1")});
    return RunZyn(args, kEnv, "", ZYN_EXE_PATH, input);
  }
  std::string P(std::string const& rel) const { return tree.Path(rel); }
  ZYNTestTempTree tree;
};

}  // namespace

TEST_F(FindingsCli, DamagedMediaGivesTheReportsFindingsOneForOneAndTheFirstTwentyOnStderr) {
  ChildResult generated = Zyn({"-generate", "-quiet", "-json", P("gen.jsonl")});
  ASSERT_EQ(0, generated.status) << generated.out;
  EXPECT_EQ("run generate None  \nvolume  1 24 \nvolume  2 1 \nsummary PASSED None 0 \n", Records(P("gen.jsonl")).out);

  for (int i = 0; i < 22; ++i) fs::remove(P("m/1/f" + std::to_string(100 + i)));
  Put("1/sub/" + kOdd, "changed");
  struct utimbuf later = {1600100000, 1600100000};  // more than a day: no clock shift
  utime(P("m/1/sub/" + kBad).c_str(), &later);
  Put("2/new", "n");
  fs::create_directories(P("m/2/z"));
  fs::create_symlink("/nonexistent", P("m/2/z/dangling"));

  ChildResult plain = Zyn({"-xml", P("r.xml")});
  std::string plainReport = ReportFindings(P("r.xml"));
  ChildResult r = Zyn({"-xml", P("r.xml"), "-json", P("f.jsonl"), "-junit", P("f.xml")});
  EXPECT_EQ(1, r.status);
  EXPECT_EQ(plain.out, r.out);  // standard output is the same with or without the files
  EXPECT_EQ(plain.err, r.err);

  std::string report = ReportFindings(P("r.xml"));
  EXPECT_EQ(plainReport, report);
  EXPECT_EQ(report, Sentences(P("f.jsonl")));
  std::string records = Records(P("f.jsonl")).out;
  std::string missing;
  for (int i = 0; i < 22; ++i) missing += "finding missing 1  \n";
  EXPECT_EQ("run check None  \nfinding unreadable 2  \n" + missing +
                "finding altered 1  \nfinding time 1  2f7375622f626164ff\nfinding unexpected 2  \n"
                "summary FAILED None 1 \n",
            records);

  ChildResult valid = RunChild({"/usr/bin/env", "xmllint", "--noout", "--schema", kSchema, P("f.xml")});
  EXPECT_EQ(0, valid.status) << valid.err;
  ChildResult failures = RunChild({"/usr/bin/env", "xmllint", "--xpath", "count(//failure)", P("f.xml")});
  EXPECT_EQ("26", failures.out.substr(0, failures.out.find('\n')));

  // Twenty findings, the rest counted, then the counts per kind.
  std::vector<std::string> lines;
  for (size_t at = 0, end; (end = r.err.find('\n', at)) != std::string::npos; at = end + 1)
    lines.push_back(r.err.substr(at, end - at));
  ASSERT_EQ(22u, lines.size()) << r.err;
  // What the scan could not read comes first, as in the report.
  EXPECT_EQ("[CD2] \"" + P("m/2//z/dangling") + "\" No such file or directory", lines[0]);
  EXPECT_EQ("[CD1] \"/f100\" File cannot be found on media", lines[1]);
  EXPECT_EQ("and 6 more, see " + P("r.xml"), lines[20]);
  EXPECT_EQ("Findings: 22 missing, 1 altered, 1 time, 1 unexpected, 1 unreadable", lines[21]);

  ChildResult quiet = Zyn({"-quiet", "-xml", P("r.xml"), "-json", P("q.jsonl")});
  EXPECT_EQ(1, quiet.status);
  EXPECT_EQ("", quiet.out + quiet.err);
  EXPECT_EQ(report, Sentences(P("q.jsonl")));

  // Volume 2 checked alone: the report counts it as CD1, the records by its number.
  ASSERT_EQ(1, Zyn({"-quiet", "-cds", "2", "-xml", P("r.xml"), "-json", P("c.jsonl")}).status);
  EXPECT_NE(std::string::npos, Records(P("c.jsonl")).out.find("finding unexpected 2"));
  EXPECT_NE(std::string::npos, Sentences(P("c.jsonl")).find("[CD1] \"/new\" Unexpected file on this media\n"));
}

// Runs that end without a verdict still write the run and the summary, with the reason
// as a finding about the run.
TEST_F(FindingsCli, RunsStoppedBeforeTheirVerdictStillWriteRunAndSummary) {
  ASSERT_EQ(0, Zyn({"-generate", "-quiet"}).status);
  struct Case {
    char const* name;
    std::vector<std::string> args;
    std::string input;
    std::function<void(FindingsCli&)> damage;
    std::string finding;
    std::string summary;
  } const cases[] = {
      {"a cancel at the prompt for volume 2",
       {},
       "1\n",
       [](FindingsCli& t) { fs::rename(t.P("m/2/0data"), t.P("m/2/0gone")); },
       "finding cancelled None",
       "summary CANCELLED None 2"},
      {"volume 2 not identified, quiet",
       {"-quiet"},
       "",
       [](FindingsCli&) {},
       "finding unidentified 2",
       "summary ERROR None 2"},
      {"-cds naming a volume the media lacks",
       {"-cds", "3"},
       "",
       [](FindingsCli& t) { fs::rename(t.P("m/2/0gone"), t.P("m/2/0data")); },
       "finding refused None",
       "summary ERROR None 2"},
      {"no reference",
       {"-quiet"},
       "",
       [](FindingsCli& t) { fs::remove(t.P("m/1/0data/MediaContent.xml")); },
       "finding reference 1",
       "summary ERROR None 2"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    c.damage(*this);
    std::vector<std::string> args = c.args;
    args.insert(args.end(), {"-xml", P("r.xml"), "-json", P("s.jsonl"), "-junit", P("s.xml")});
    ChildResult r = Zyn(args, c.input);
    EXPECT_EQ(2, r.status) << r.out;
    std::string records = Records(P("s.jsonl")).out;
    EXPECT_EQ(0u, records.find("run check None")) << records;
    EXPECT_NE(std::string::npos, records.find(c.finding + " ")) << records;
    EXPECT_NE(std::string::npos, records.find(c.summary + " \n")) << records;
    EXPECT_EQ(0, RunChild({"/usr/bin/env", "xmllint", "--noout", "--schema", kSchema, P("s.xml")}).status);
    EXPECT_EQ("", r.err);  // nothing of the media differs: nothing on standard error
  }
}

TEST_F(FindingsCli, FilesThatCantBeWrittenAreRefusedBeforeTheScan) {
  struct Case {
    std::vector<std::string> args;
    std::string message;
  } const cases[] = {
      {{"-json", P("none/f.jsonl")}, "-json: unable to write to " + P("none/f.jsonl")},
      {{"-junit", P("m")}, "-junit: unable to write to " + P("m")},
      {{"-json"}, "-json: missing value(s)"},
      {{"-generate", "-junit", P("g.xml")}, "Invalid argument combination! [-junit] cannot be used with [-generate]"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.message);
    ChildResult r = Zyn(c.args);
    EXPECT_EQ(2, r.status);
    EXPECT_NE(std::string::npos, r.out.find(c.message + "\n\n")) << r.out;
    EXPECT_EQ(std::string::npos, r.out.find("Mode}")) << r.out;
  }
}
