#include <gtest/gtest.h>

#include <string>

#include "DStrings.h"
#include "ZYNAdmError.h"
#include "ZYNInsMediaCheckerOptions.h"
#include "ZYNInsMediaCheckerServices.h"
#include "ZYNInsMsg.h"
#include "support/CaptureStdout.h"
#include "support/TestText.h"

namespace {

TEST(ZYNInsMsgBuild, ParametersFillMarksAndEscapesStayLiteral) {
  struct Case {
    wchar_t const* templ;
    std::vector<wchar_t const*> parameters;
    wchar_t const* expected;
  } cases[] = {
      {L"/P1", {}, L"??"},
      {L"/P2", {L"a"}, L"??"},
      {L"a/P1b/P1c", {L"x"}, L"axbxc"},
      {L"//P1", {L"x"}, L"/P1"},
      {L"a//P1b", {L"x"}, L"a/P1b"},
      {L"///P1", {L"x"}, L"//P1"},
      {L"/P", {L"x"}, L"/P"},
      {L"ab", {L"x"}, L"ab"},
      {L"/P1", {L"/P2"}, L"/P2"},
      {L"a/P1", {L"x"}, L"ax"},
      {L"/P12", {L"x"}, L"x2"},
      {L"/P0/P9", {L"x"}, L"/P0??"},
      {L"/P2-/P1", {L"a", L"b", L"c"}, L"b-a"},
      {L"[/P1]", {L""}, L"[]"},
      {L"", {L"x"}, L""},
  };
  for (auto const& c : cases) {
    DStrings parameters;
    for (auto p : c.parameters) parameters.PutBack(DString(p));
    EXPECT_EQ(W(ZYNInsMsg::BuildMsg(DString(c.templ), parameters)), c.expected) << c.templ;
  }
}

TEST(ZYNInsMsgFill, PadsOnTheRightAndNeverCuts) {
  EXPECT_EQ(W(fill(DString(L"-relinfo"), 9, L' ')), L"-relinfo ");
  EXPECT_EQ(W(fill(DString(L"-generate"), 9, L' ')), L"-generate");
  EXPECT_EQ(W(fill(DString(L"-generated"), 9, L' ')), L"-generated");
  EXPECT_EQ(W(fill(DString(), 3, L'.')), L"...");
}

struct ConsoleCase {
  char const* name;
  bool debug;
  bool quiet;
  std::vector<wchar_t const*> stack;  // pushed oldest first
  wchar_t const* message;
  char const* expected;
};

TEST(ZYNInsMsgConsole, DisplayErrorPrintsTheStackOldestFirst) {
  ConsoleCase cases[] = {
      {"plain", false, false, {L"first", L"second"}, L"last", "\n\nError\nfirst\nsecond\nlast\n\n"},
      {"popped newest passed in", false, false, {L"first"}, L"", "\n\nError\nfirst\n\n"},
      {"nothing at all", false, false, {}, L"", "\n\nError\n\n\n"},
      {"quiet hides it", false, true, {L"a"}, L"b", ""},
  };
  for (auto const& c : cases) {
    std::string out = CaptureStdoutOfChild([&c] {
      ZYNInsMsg::_IsDebug = c.debug;
      ZYNInsMediaCheckerOptions::SetQuiet(c.quiet);
      for (auto m : c.stack) ZYNAdmError::Push(DString(m));
      ZYNInsMediaCheckerServices::DisplayError(DString(c.message));
      if (!ZYNAdmError::IsStackEmpty()) std::fputs("<stack not empty>", stdout);
    });
    EXPECT_EQ(out, c.expected) << c.name;
  }
}

TEST(ZYNInsMsgConsole, DebugAndTracePrintLineEnds) {
  struct Case {
    char const* name;
    bool debug;
    std::function<void()> call;
    char const* expected;
  } cases[] = {
      {"debug off", false, [] { ZYNInsMsg::Debug(DString(L"x")); }, ""},
      {"debug adds a line end", true, [] { ZYNInsMsg::Debug(DString(L"x")); }, "[DEBUG]x\n"},
      {"debug keeps a line end", true, [] { ZYNInsMsg::Debug(DString(L"x\n")); }, "[DEBUG]x\n"},
      {"debug of nothing", true, [] { ZYNInsMsg::Debug(DString()); }, "[DEBUG]\n"},
      {"prefix twice", true, [] { ZYNInsMsg::Debug(DString(L"[DEBUG]waiting")); }, "[DEBUG][DEBUG]waiting\n"},
      {"trace adds nothing", false, [] { ZYNInsMsg::TracePrint(DString(L"no end")); }, "no end"},
      {"trace of nothing", true, [] { ZYNInsMsg::TracePrint(DString()); },
       "[DEBUG]{ZYNInsMsg::TracePrint} ZYNInsMsg::TracePrint called without message.\n"},
      {"latin-1 passes byte for byte", false, [] { ZYNInsMsg::TracePrint(DString(L"caf\u00e9")); }, "caf\xE9"},
  };
  for (auto const& c : cases) {
    std::string out = CaptureStdoutOfChild([&c] {
      ZYNInsMsg::_IsDebug = c.debug;
      c.call();
    });
    EXPECT_EQ(out, c.expected) << c.name;
  }
}

}  // namespace
