#include <gtest/gtest.h>

#include <cstdio>

#include "ZYNInsMediaCheckerOptions.h"
#include "ZYNInsMediaCheckerServices.h"
#include "support/CaptureStdout.h"
#include "support/OptionsForTests.h"
#include "support/ZYNTestTempTree.h"

typedef ZYNInsMediaCheckerOptions Options;

TEST(ZYNInsMediaFinalize, VerdictStatusAndReportFollowModeAndErrors) {
  ZYNTestTempTree tree;
  std::string const report = tree.Path("r.xml");
  std::string const head =
      "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<Application Name=\"MediaChecker\" ZirkOS_BitMode=\"64\" "
      "ZirkOS_Buildtime=\"linux_b64\" ZirkOS_NAME=\"Linux\" ZirkOS_Type=\"UNIX\" "
      "xmlns=\"http://www.zynthar.com/tools/config\">\n";
  std::string const info = "\t\t<ZirkInfo Value=\"checkerVersion=1.1\"/>\n";
  struct Case {
    bool generate, quiet;
    std::string xml, errors, relData;
    std::string out;     // then "|" and the status
    std::string stored;  // the report's bytes; empty: none written
  } cases[] = {
      {false, false, "", "", "R", "\n\n\nMedia check completed\n\nR\n\nStatus: PASSED\n\n|0", ""},
      {false, false, report, "", "", "\n\n\nMedia check completed\n\n\n\nStatus: PASSED\n\n|0",
       head + "\t<Step Name=\"Check\">\n" + info + "\t</Step>\n</Application>"},
      {false, false, report, "e1\ne2\n", "R",
       "\n\n\nMedia check completed\n\nR\n\nStatus: FAILED\n\nA report file has been written to " + report + "\n\n|1",
       head + "\t<Step Name=\"Check\">\n\t\t<ZirkError Value=\"e1&#xA;e2&#xA;\"/>\n" + info +
           "\t\t<ZirkInfo Value=\"R\"/>\n\t</Step>\n</Application>"},
      {false, true, report, "e", "", "|1",
       head + "\t<Step Name=\"Check\">\n\t\t<ZirkError Value=\"e\"/>\n" + info + "\t</Step>\n</Application>"},
      {true, false, "", "e", "", "\nOperation terminated with error(s)\n\n|2", ""},
      {true, false, report, "", "", "\nOperation terminated successfully\n\n|0",
       head + "\t<Step Name=\"Generate\">\n" + info + "\t</Step>\n</Application>"},
      {true, false, tree.Path("no/r.xml"), "", "",
       "\n\nError\nUnable to write to \"" + tree.Path("no/r.xml") + "\"\n\n|2", ""},
  };
  for (Case const& c : cases) {
    std::remove(report.c_str());
    std::string out = CaptureStdoutOfChild([&] {
      Options::ResetValues();
      ZYNInsMediaCheckerOptionsForTests::SetGenerate(c.generate);
      ZYNInsMediaCheckerOptionsForTests::SetQuiet(c.quiet);
      ZYNInsMediaCheckerOptionsForTests::SetReportFile(ZYNTestD(c.xml));
      int status = ZYNInsMediaCheckerServices::Finalize(ZYNTestD(c.errors), ZYNTestD(c.relData));
      std::printf("|%d", status);
    });
    EXPECT_EQ(c.out, out) << c.errors;
    EXPECT_EQ(c.stored, tree.Read("r.xml")) << c.errors;
  }
}
