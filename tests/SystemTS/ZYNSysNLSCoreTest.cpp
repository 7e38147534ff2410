#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "DStrings.h"
#include "ZYNAdmCodePage.h"
#include "ZYNResult.h"
#include "ZYNSysCodePage.h"
#include "ZYNSysIConvTSWrap.h"
#include "ZYNSysNLSCore.h"
#include "support/ChildProcess.h"
#include "support/ZYNTestTempTree.h"

namespace {

std::string Hex(DString const& text) {
  std::string out;
  char unit[8];
  for (int i = 0; i < text.Length(); ++i) {
    std::snprintf(unit, sizeof unit, i == 0 ? "%04X" : " %04X", text.ConvertToUCChar()[i]);
    out += unit;
  }
  return out;
}

std::string Shown(char const* text) { return text != nullptr ? text : "(null)"; }

std::atomic<int> S_callbackCalls{0};
void sCountCall() { ++S_callbackCalls; }

// The language environment is decided once per process, so each case runs in a fresh
// copy of this binary, whose static constructor does the work before any test or main.
void sProbeEnvironment() {
  ZYNSysNLSEnv env = {};
  GetEnvNLSDataA(&env);
  DString name = ZYNAdmCodePage::ConvertStrToUcs("caf\xC3\xA9-\xE9!");
  char* back = ZYNAdmCodePage::ConvertUcsToStr(name);
  std::printf("%s|%s|%s|%s\n", Shown(env.codePage).c_str(), Shown(ZYNGetCLocaleRequired()).c_str(),
              std::setlocale(LC_ALL, nullptr), Hex(name).c_str());
  std::printf("%s\n", std::string(back) == "caf\xC3\xA9-\xE9!" ? "same bytes" : "changed bytes");
  ZYNAdmCodePage::FreeAndNull(back);
}

// Racing first users: the table is read and the callbacks are called once.
void sProbeRace() {
  ZYNSysCodePage::GetEnvConverter();
  DeInitNLSCore(0);
  NLSCoreRegisterCBOnChange(sCountCall);
  std::vector<char const*> codePages(8, nullptr);
  std::vector<std::thread> threads;
  for (size_t t = 0; t < codePages.size(); ++t) {
    threads.emplace_back([&codePages, t] {
      ZYNSysNLSEnv env = {};
      GetEnvNLSDataA(&env);
      codePages[t] = env.codePage;
    });
  }
  for (auto& thread : threads) thread.join();
  bool same = true;
  for (char const* codePage : codePages) same = same && codePage == codePages[0];
  std::printf("%s %s callbacks=%d\n", Shown(codePages[0]).c_str(), same ? "shared" : "differs", S_callbackCalls.load());
}

void sProbeLanguage() {
  ZYNSysCodePage* converter = ZYNSysCodePage::GetEnvConverter();
  int accepted = 0;
  for (int i = 0; i < 5; ++i) accepted += NLSCoreRegisterCBOnChange(sCountCall) == ZYN_S_OK ? 1 : 0;
  std::printf("accepted=%d null=%d\n", accepted, NLSCoreRegisterCBOnChange(nullptr) == ZYN_E_FAIL ? 1 : 0);
  for (char const* language : {"Plain", "Plain", "Klingon"}) {
    S_callbackCalls = 0;
    bool done = InitNLSCore(language);
    std::printf("%s=%d calls=%d codePage=%s\n", language, done ? 1 : 0, S_callbackCalls.load(),
                converter->GetCodePageName());
  }
}

void sProbeSessionEnd() {
  ZYNSysCodePage converter("UTF-8");
  unsigned short units[8];
  int count = 0;
  converter.ConvertMBCSToUCS2("\xC3\xA9", 2, units, &count);
  std::printf("before=%d:%04X\n", count, units[0]);
  ZYNSysIConvTSWrap::sDeinitIConvTS(0);
  for (int i = 0; i < 2; ++i) {
    converter.ConvertMBCSToUCS2("\xC3\xA9", 2, units, &count);
    std::printf("\nafter=%d:%04X\n", count, units[0]);
  }
  IConvDesc_t handle = 0;
  std::printf("open=%d\n", ZYNSysIConvTSWrap::Open("UTF-8", "ISO8859-1", handle) == ZYN_E_FAIL ? 0 : 1);
}

int sRunProbe() {
  char const* probe = std::getenv("ZYN_TEST_PROBE");
  if (probe == nullptr) return 0;
  std::string which(probe);
  if (which == "nls-env")
    sProbeEnvironment();
  else if (which == "nls-race")
    sProbeRace();
  else if (which == "nls-language")
    sProbeLanguage();
  else if (which == "iconv-end")
    sProbeSessionEnd();
  else
    return 0;
  std::fflush(stdout);
  _exit(0);
}
[[maybe_unused]] int S_probe = sRunProbe();

std::string Reffiles() { return std::string(ZYN_SOURCE_DIR) + "/reffiles"; }

// A fresh process with only the variables of the language environment that are given.
ChildResult RunProbe(char const* probe, std::vector<std::string> env) {
  std::vector<std::string> all = {std::string("ZYN_TEST_PROBE=") + probe,
                                  "QRTReffilesPath",
                                  "QRTInstallPath",
                                  "LANG",
                                  "LC_ALL",
                                  "LC_CTYPE",
                                  "ZYNSysNLSCoreTrace"};
  all.insert(all.end(), env.begin(), env.end());
  return RunChild({SelfExecutable()}, all);
}

// A table in a temporary folder, laid out as QRTReffilesPath expects.
struct TempTable : ZYNTestTempTree {
  explicit TempTable(std::string const& text) {
    Dir("NLS");
    File("NLS/SUPPLANG_K6", text);
  }
};

TEST(ZYNSysNLSCore, EnvironmentChoosesCodePageFromTableAndLang) {
  TempTable lateUtf8("*LINUX*\nEnglish US qq_QQ.ISO8859-1 ISO8859-1\nPlain Any C.UTF-8 UTF-8\n*END*\n");
  std::string const utf8Units = "0063 0061 0066 00E9 002D DCE9 0021";
  std::string const latin1Units = "0063 0061 0066 00C3 00A9 002D 00E9 0021";
  struct Case {
    std::vector<std::string> env;
    std::string first;
  } cases[] = {
      {{"LANG=C.UTF-8"}, "ISO8859-1|(null)|C|" + latin1Units},  // no table: locale untouched
      {{"QRTReffilesPath=" + Reffiles(), "LANG=C.UTF-8"}, "UTF-8|C.UTF-8|C.UTF-8|" + utf8Units},
      {{"QRTReffilesPath=/nowhere:" + Reffiles(), "LANG=C"}, "ISO8859-1|C|C|" + latin1Units},
      {{"QRTInstallPath=" + std::string(ZYN_SOURCE_DIR), "LANG=POSIX"}, "ISO8859-1|C|C|" + latin1Units},
      {{"QRTInstallPath=" + std::string(ZYN_SOURCE_DIR), "LC_ALL=C.utf8"}, "UTF-8|C.utf8|C.utf8|" + utf8Units},
      // Matched on the locale the C library took, since no row contains this LANG.
      {{"QRTReffilesPath=" + lateUtf8.Root(), "LANG=xx_YY.UTF-8", "LC_ALL=C.UTF-8"},
       "UTF-8|C.UTF-8|C.UTF-8|" + utf8Units},
      // Matched by the row's locale containing LANG; no locale of that name exists.
      {{"QRTReffilesPath=" + lateUtf8.Root(), "LANG=qq_QQ"}, "ISO8859-1|(null)|C|" + latin1Units},
  };
  for (auto const& c : cases) {
    ChildResult result = RunProbe("nls-env", c.env);
    EXPECT_EQ(result.out, c.first + "\nsame bytes\n") << c.env.back();
    EXPECT_EQ(result.err, "") << c.env.back();
  }
}

TEST(ZYNSysNLSCore, TracesOnlyWhenSwitchedOn) {
  TempTable noSection("*OTHER*\nEnglish US C UTF-8\n*END*\n");
  ChildResult traced = RunProbe("nls-env", {"QRTReffilesPath=" + Reffiles(), "LANG=C", "ZYNSysNLSCoreTrace="});
  EXPECT_EQ(traced.out.substr(0, traced.out.find("ISO8859-1|")),
            "[[[ Current locale: C ]]]\n[[[ Env var $LANG: C ]]]\n[[[ Current locale: C ]]]\n"
            "[[[ InitNLSCoreEnvironment: environment code page is \"ISO8859-1\" ]]]\n");
  ChildResult missing = RunProbe("nls-env", {"QRTReffilesPath=" + noSection.Root(), "ZYNSysNLSCoreTrace=1"});
  EXPECT_EQ(missing.err,
            "*LINUX* OS section not found\n[[[ InitNLSCoreEnvironment: failed to retrieve environment code page, "
            "falling back to code page ISO8859-1. ]]]\n");
  ChildResult quiet = RunProbe("nls-env", {"QRTReffilesPath=" + noSection.Root()});
  EXPECT_EQ(quiet.err, "");
  EXPECT_EQ(quiet.out.substr(0, 10), "ISO8859-1|");
}

TEST(ZYNSysNLSCore, RacingFirstUsersInitialiseOnce) {
  ChildResult result = RunProbe("nls-race", {"QRTReffilesPath=" + Reffiles(), "LANG=C.UTF-8"});
  EXPECT_EQ(result.out, "UTF-8 shared callbacks=1\n");
}

TEST(ZYNSysNLSCore, ForcedLanguageCallsBackAndFallsBackToEnvironment) {
  TempTable table("*LINUX*\nEnglish US C.UTF-8 UTF-8\nPlain Any C ISO8859-1\n*END*\n");
  ChildResult result = RunProbe("nls-language", {"QRTReffilesPath=" + table.Root(), "LANG=C.UTF-8"});
  EXPECT_EQ(result.out,
            "accepted=3 null=1\n"
            "Plain=1 calls=3 codePage=ISO8859-1\n"
            "Plain=1 calls=0 codePage=ISO8859-1\n"
            "Klingon=0 calls=3 codePage=UTF-8\n");
}

TEST(ZYNSysIConvTSWrap, SessionEndDropsToIdentityAndSaysSoOnce) {
  ChildResult result = RunProbe("iconv-end", {});
  EXPECT_EQ(result.out,
            "before=1:00E9\n"
            "[ZYNSysIConvTSWrap] WARNING: from this point, conversions are no longer supported.\n"
            "[ZYNSysIConvTSWrap] INFO: session is ending. Support for MBCS has been dropped in a earlier stage\n.\n"
            "after=2:00C3\n\nafter=2:00C3\nopen=0\n");
}

// Reading of the file, in this process: the table is dropped again at the end.
class ZYNSysNLSTable : public ::testing::Test {
 protected:
  // The environment is decided before the table is swapped, so no test table decides it.
  void SetUp() override {
    ZYNSysNLSEnv env = {};
    GetEnvNLSDataA(&env);
  }
  void TearDown() override {
    DeInitSupplangCache();
    unsetenv("QRTReffilesPath");
  }
  static int CountRows(std::string const& text, bool& hasTable) {
    TempTable table(text);
    DeInitSupplangCache();
    setenv("QRTReffilesPath", table.Root().c_str(), 1);
    DStrings* languages = nullptr;
    unsigned int count = 0;
    GetSupportedLanguageList(languages, count);
    hasTable = languages != nullptr;
    delete languages;
    ZYNSysNLSFilter all;
    all.first.function = [](ZYNSysNLSEntry*, void*) { return 1; };
    all.argument = nullptr;
    int rows = 0;
    return GetNLSInformationA(all, 1, rows, nullptr) == ZYN_S_OK ? rows : -1;
  }
};

TEST_F(ZYNSysNLSTable, RowsAreReadUpToEndMarker) {
  std::string forty;
  for (int i = 0; i < 40; ++i) forty += "L" + std::to_string(i) + " T x" + std::to_string(i) + " UTF-8\n";
  struct Case {
    std::string text;
    int rows;
    bool hasTable;
  } cases[] = {
      {"*LINUX*\n" + forty + "*END*\n", 40, true},
      {"header\n*LINUX*\nA T a CP\nB T b CP\nC T c CP\n", 2, true},  // the last row is not counted
      {"*LINUX*\n*END*\nA T a CP\n", -1, true},
      {"*LINUX*\n", -1, false},
      {"*OTHER*\nA T a CP\n*END*\n", -1, false},
  };
  for (auto const& c : cases) {
    bool hasTable = false;
    EXPECT_EQ(CountRows(c.text, hasTable), c.rows) << c.text;
    EXPECT_EQ(hasTable, c.hasTable) << c.text;
  }
}

}  // namespace
