// The commands a user types first, through the real executable: the tool started from
// the media it stands on, and the long options every program answers.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "support/ChildProcess.h"
#include "support/ZYNTestTempTree.h"

namespace fs = std::filesystem;

namespace {

// Started from the media, with the executable two folders below volume 1's root as on a
// disc: from that root (whose own "0data" is no Assembly Media) and through "..",
// volume 1 is found, named without "." or "..", and the media passes.
TEST(MediaWithItsExecutable, StartedFromTheMediaByAnyPathChecksIt) {
  ZYNTestTempTree tree;
  const std::string volume1 = tree.Path("media/1"), report = tree.Path("report.xml");
  fs::create_directories(volume1 + "/tools/bin");
  fs::create_directories(tree.Path("media/2"));
  tree.File("media/2/data", "b");
  fs::copy_file(ZYN_EXE_PATH, volume1 + "/tools/bin/ZYNInsMediaCheck");
  ASSERT_EQ(RunZyn({"-generate", "-quiet", "-CD1Path", volume1}).status, 0);
  const std::pair<char const*, char const*> cases[] = {
      {"", "./tools/bin/ZYNInsMediaCheck"},
      {"", "tools/bin/ZYNInsMediaCheck"},
      {"", "./tools/../tools/bin/./ZYNInsMediaCheck"},
      {"/tools", "../tools/bin/ZYNInsMediaCheck"},
      {"/tools/bin", "./ZYNInsMediaCheck"},
      {"/tools/bin", "../../tools/bin/ZYNInsMediaCheck"},
  };
  for (auto const& c : cases) {
    ChildResult r = RunZyn({"-xml", report}, {}, volume1 + c.first, c.second);
    EXPECT_EQ(r.out.find("{Checker Mode}\n{CD to check : all}\n{Custom Xml report file : " + report +
                         "}\n{CD1 path : " + volume1 + "}\n"),
              0u)
        << c.first << " " << c.second << r.out;
    EXPECT_NE(r.out.find("Status: PASSED"), std::string::npos) << c.second << r.out;
    EXPECT_EQ(r.status, 0) << c.first << " " << c.second;
  }
}

// The long forms answer as help does, ahead of anything else on the line; a near miss
// stays an invalid argument.
TEST(LongOptions, HelpAndVersionAnswerAndEndWithZero) {
  const std::string help = RunZyn({"-h"}).out;
  ASSERT_EQ(help.find("Zynthar Media checker tools.\n"), 0u);
  const std::string version = "ZYNInsMediaCheck " ZYN_VERSION "\n";
  const struct {
    std::vector<std::string> args;
    std::string out;
    int status;
  } cases[] = {
      {{"--help"}, help, 0},
      {{"-quiet", "--help", "-bogus"}, help, 0},
      {{"--version"}, version, 0},
      {{"-cds", "x", "--version", "-quiet"}, version, 0},
      {{"--help", "--version"}, help, 0},
      {{"--helpx", "-quiet"}, "", 2},
      {{"--Version", "-quiet"}, "", 2},
  };
  for (auto const& c : cases) {
    ChildResult r = RunZyn(c.args);
    EXPECT_EQ(r.out, c.out) << c.args[0];
    EXPECT_EQ(r.status, c.status) << c.args[0];
  }
}

}  // namespace
