// ZYNInsFindingsJUnit.cpp - the findings of a check as the JUnit XML that CI dashboards
// read. Written by hand rather than through the XML writer: a file name may hold
// characters XML 1.0 can't carry at all (controls, the halves standing for bytes), and
// those become U+FFFD here.
#include "ZYNInsFindingsJUnit.h"

#include <set>
#include <vector>

#include "ZYNInsFindings.h"
#include "ZYNInsFindingsJson.h"

namespace {

struct Suite {
  std::string name;
  int volume;
  std::vector<ZYNInsFinding const*> failures;
  long long intact;
};

}  // namespace

static void sAppendEscaped(std::string& out, DString const& text) {
  unsigned short const* units = text.ConvertToUCChar();
  for (int i = 0, n = text.Length(); i < n; ++i) {
    unsigned unit = units[i];
    switch (unit) {
      case '&':
        out += "&amp;";
        continue;
      case '<':
        out += "&lt;";
        continue;
      case '>':
        out += "&gt;";
        continue;
      case '"':
        out += "&quot;";
        continue;
      case '\t':
        out += "&#9;";
        continue;
      case '\n':
        out += "&#10;";
        continue;
      case '\r':
        out += "&#13;";
        continue;
      default:
        break;
    }
    if (unit < 0x20 || unit == 0xFFFE || unit == 0xFFFF) unit = 0xFFFD;
    ZYNInsAppendUtf8(out, unit);
  }
}

static std::string sEscaped(DString const& text) {
  std::string out;
  sAppendEscaped(out, text);
  return out;
}

static DString sSentence(ZYNInsFinding const& finding) {
  int length = finding.sentence.Length();
  if (length > 0 && finding.sentence[length - 1] == L'\n') --length;
  return finding.sentence.SubStringD(0, length);
}

static std::string sVolumeName(int volume) { return "CD" + std::to_string(volume); }

static Suite& sSuiteOf(std::vector<Suite>& suites, int volume) {
  for (Suite& suite : suites) {
    if (suite.volume == volume) return suite;
  }
  suites.push_back(Suite{sVolumeName(volume), volume, {}, 0});
  return suites.back();
}

// The files read, less those that a finding names: a file both altered and moved in
// time counts once.
static void sCountIntact(std::vector<Suite>& suites) {
  for (ZYNInsVolumeTally const& tally : ZYNInsFindings::Volumes()) {
    Suite& suite = sSuiteOf(suites, tally.volume);
    std::set<std::u16string> named;
    for (ZYNInsFinding const* finding : suite.failures) {
      if (finding->kind == ZYNInsFindingMissing || finding->kind == ZYNInsFindingUnreadable) continue;
      DString const& path = finding->path;
      named.emplace(reinterpret_cast<char16_t const*>(path.ConvertToUCChar()), static_cast<size_t>(path.Length()));
    }
    long long intact = tally.files - static_cast<long long>(named.size());
    suite.intact = intact < 0 ? 0 : intact;
  }
}

static void sFailingCase(std::string& out, std::string const& name, std::string const& classname,
                         ZYNInsFindingKind kind, DString const& message) {
  out += "\t\t<testcase name=\"" + name + "\" classname=\"" + classname + "\">\n\t\t\t<failure type=\"";
  sAppendEscaped(out, DString(ZYNInsFindings::KindName(kind)));
  out += "\" message=\"" + sEscaped(message) + "\"/>\n\t\t</testcase>\n";
}

static void sSuiteHead(std::string& out, std::string const& name, size_t tests, size_t failures, char const* time,
                       DString const& start) {
  out += "\t<testsuite name=\"" + name + "\" tests=\"" + std::to_string(tests) + "\" failures=\"" +
         std::to_string(failures) + "\" errors=\"0\" skipped=\"0\" time=\"" + time + "\" timestamp=\"" +
         sEscaped(start) + "\">\n";
}

// The run's own suite: a failing case per finding about the run, else one case that
// stands for the run's end.
static void sRunSuite(std::string& out, ZYNInsRunFacts const& facts, std::vector<ZYNInsFinding const*> const& run,
                      char const* time, size_t& tests, size_t& failures) {
  bool failedWithoutWord = run.empty() && facts.status == 2;
  size_t failing = run.empty() ? (failedWithoutWord ? 1 : 0) : run.size();
  sSuiteHead(out, "run", run.empty() ? 1 : run.size(), failing, time, facts.start);
  for (ZYNInsFinding const* finding : run) {
    std::string name = sEscaped(DString(ZYNInsFindings::KindName(finding->kind)));
    if (finding->volume > 0) name += " " + sVolumeName(finding->volume);
    sFailingCase(out, name, "run", finding->kind, sSentence(*finding));
  }
  if (failedWithoutWord) {
    sFailingCase(out, "error", "run", ZYNInsFindingError, DString(L"The run ended with status 2"));
  } else if (run.empty()) {
    out += "\t\t<testcase name=\"verdict\" classname=\"run\"/>\n";
  }
  out += "\t</testsuite>\n";
  tests += run.empty() ? 1 : run.size();
  failures += failing;
}

std::string ZYNInsFindingsJUnit::Text(ZYNInsRunFacts const& facts) {
  std::vector<ZYNInsFinding const*> run;
  std::vector<Suite> suites;
  for (ZYNInsVolumeTally const& tally : ZYNInsFindings::Volumes()) sSuiteOf(suites, tally.volume);
  for (ZYNInsFinding const& finding : ZYNInsFindings::List()) {
    if (ZYNInsFindings::IsRunLevel(finding.kind) || finding.volume <= 0) {
      run.push_back(&finding);
    } else {
      sSuiteOf(suites, finding.volume).failures.push_back(&finding);
    }
  }
  sCountIntact(suites);

  std::string seconds = ZYNInsSecondsText(facts.seconds);
  char const* time = seconds.c_str();
  std::string body;
  size_t tests = 0;
  size_t failures = 0;
  sRunSuite(body, facts, run, time, tests, failures);
  for (Suite const& suite : suites) {
    sSuiteHead(body, suite.name, suite.failures.size() + 1, suite.failures.size(), "0", facts.start);
    for (ZYNInsFinding const* finding : suite.failures) {
      sFailingCase(body, sEscaped(finding->path), suite.name, finding->kind, sSentence(*finding));
    }
    body += "\t\t<testcase name=\"" + std::to_string(suite.intact) + " files intact\" classname=\"" + suite.name +
            "\"/>\n\t</testsuite>\n";
    tests += suite.failures.size() + 1;
    failures += suite.failures.size();
  }
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"ZYNInsMediaCheck\" tests=\"" +
         std::to_string(tests) + "\" failures=\"" + std::to_string(failures) + "\" errors=\"0\" time=\"" + time +
         "\">\n" + body + "</testsuites>\n";
}
