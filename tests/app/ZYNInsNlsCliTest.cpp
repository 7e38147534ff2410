// Paths that are not ASCII, through the real executable: whatever the language
// environment, the bytes a user typed come back unchanged on the console and reach the
// same files.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/ZYNTestTempTree.h"

namespace fs = std::filesystem;

namespace {

struct Environment {
  char const* label;
  std::vector<std::string> variables;
};

std::vector<Environment> Environments() {
  std::string table = "QRTReffilesPath=" + std::string(ZYN_SOURCE_DIR) + "/reffiles";
  return {{"C without table", {"LANG=C"}},
          {"C with table", {"LANG=C", table}},
          {"UTF-8 with table", {"LANG=C.UTF-8", table}},
          {"UTF-8 without table", {"LANG=C.UTF-8"}}};
}

ChildResult RunExe(std::vector<std::string> const& args, Environment const& environment) {
  std::vector<std::string> env{"LC_ALL",          "LC_CTYPE",       "LC_MESSAGES",
                               "QRTReffilesPath", "QRTInstallPath", "ZYNSysNLSCoreTrace"};
  env.insert(env.end(), environment.variables.begin(), environment.variables.end());
  return RunZyn(args, env);
}

// Valid UTF-8, a lone Latin-1 byte, and a character beyond UCS-2.
const std::vector<std::string> kNames = {"caf\xC3\xA9", "x\xE9y", "\xF0\x9F\x98\x80z"};

class NlsOnTree : public ::testing::Test {
 protected:
  ZYNTestTempTree tree;
  std::string root = tree.Root();
};

TEST_F(NlsOnTree, BannerShowsPathsWithTheirOwnBytes) {
  for (auto const& name : kNames) {
    std::string cd1 = root + "/" + name + "/1";
    std::string report = root + "/" + name + "/r-" + name + ".xml";
    fs::create_directories(cd1);
    for (auto const& environment : Environments()) {
      std::ofstream(report) << "old";
      ChildResult r = RunExe({"-CD1Path", cd1, "-xml", report}, environment);
      std::string banner =
          "{Checker Mode}\n{CD to check : all}\n{Custom Xml report file : " + report + "}\n{CD1 path : " + cd1 + "}\n";
      EXPECT_EQ(r.out.substr(0, banner.size()), banner) << environment.label << " " << name;
      EXPECT_EQ(r.err, "") << environment.label << " " << name;
      // The old report was replaced under its own name, and no other name appeared.
      std::string others;
      for (auto const& entry : fs::directory_iterator(root + "/" + name)) {
        std::string path = entry.path().string();
        if (path != cd1 && path != report) others += path + "\n";
      }
      EXPECT_EQ(others, "") << environment.label << " " << name;
      std::string content;
      std::ifstream(report) >> content;
      EXPECT_NE(content, "old") << environment.label << " " << name;
    }
  }
}

TEST_F(NlsOnTree, ErrorMessagesRepeatThePathsUnchanged) {
  for (auto const& name : kNames) {
    std::string report = root + "/no-" + name + "/r.xml";
    for (auto const& environment : Environments()) {
      ChildResult r = RunExe({"-xml", report}, environment);
      EXPECT_EQ(r.out, "\n\nError\n" + report + " No such file or directory\n\n-xml: unable to write to " + report +
                           "\n\n\nPress Enter to finish\n")
          << environment.label << " " << name;
      EXPECT_EQ(r.status, 2) << environment.label << " " << name;
    }
  }
}

// The verdict doesn't depend on the settings of the two runs: a media generated under
// one reading of its names passes a check under any other, and a real rename is still
// a file missing and one unexpected.
TEST_F(NlsOnTree, VerdictIsTheSameWhateverTheSettingsOfEitherRun) {
  const std::string cd1 = root + "/media/1", report = root + "/r.xml";
  fs::create_directories(cd1);
  fs::create_directories(root + "/media/2");
  for (auto const& name : kNames) std::ofstream(cd1 + "/" + name) << name;
  std::ofstream(root + "/media/2/caf\xC3\xA9 2") << "b";
  for (auto const& generated : Environments()) {
    ASSERT_EQ(RunExe({"-generate", "-quiet", "-CD1Path", cd1}, generated).status, 0) << generated.label;
    for (auto const& checked : Environments()) {
      std::string label = std::string(generated.label) + " / " + checked.label;
      ChildResult r = RunExe({"-quiet", "-CD1Path", cd1, "-xml", report}, checked);
      EXPECT_EQ(r.status, 0) << label;
      EXPECT_EQ(r.err, "") << label;
      fs::rename(cd1 + "/" + kNames[0], cd1 + "/cafe");
      r = RunExe({"-quiet", "-CD1Path", cd1, "-xml", report}, checked);
      fs::rename(cd1 + "/cafe", cd1 + "/" + kNames[0]);
      std::ifstream in(report);
      std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      EXPECT_EQ(r.status, 1) << label;
      EXPECT_NE(text.find("File cannot be found on media"), std::string::npos) << label;
      EXPECT_NE(text.find("[CD1] &quot;/cafe&quot; Unexpected file"), std::string::npos) << label;
    }
  }
}

}  // namespace
