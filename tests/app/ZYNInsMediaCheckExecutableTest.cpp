// The command line as a user meets it: the real executable in a child process, its
// standard output compared byte for byte, and its exit status.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "ZYNAdmStdLib.h"
#include "support/ChildProcess.h"
#include "support/ZYNTestTempTree.h"

namespace fs = std::filesystem;

namespace {

std::string Block(std::string const& text) { return "\n\nError\n" + text + "\n\n"; }
const std::string kPause = "\nPress Enter to finish\n";
const std::string kTempReport = "/tmp/MediaCheck_report.xml";
const std::string kTimeout = "/usr/bin/timeout";

// A check that finds no reference file on volume 1: the records left by the search for
// an Assembly Media come first, then the missing file, then the verdict.
std::string NoReference(std::string const& misses, std::string const& reference, std::string const& report) {
  return Block(misses + "\n\"" + reference + "\" input file is missing or cannot be accessed") +
         "\n\n\nMedia check completed\n\n\n\nStatus: FAILED\n\nA report file has been written to " + report + "\n\n";
}

// A temporary folder holding the trees of one test; `P(rel)` is the absolute path.
class MediaCheckOnTree : public ::testing::Test {
 protected:
  std::string P(std::string const& rel) const { return root + "/" + rel; }
  void Dirs(std::vector<std::string> const& rels) {
    for (auto const& rel : rels) fs::create_directories(P(rel));
  }
  void File(std::string const& rel) { std::ofstream(P(rel)) << "x"; }
  // The record that the search for an Assembly Media leaves for a folder without "0data".
  static std::string Miss(std::string const& dir) { return dir + "/0data No such file or directory\n\n"; }
  // The records of a search that finds nothing: every ancestor of `rel` up to, not
  // including, the root, then the root's "0data".
  std::string Misses(std::string const& rel) const {
    std::string text;
    for (fs::path dir = rel.empty() ? root : P(rel); dir != "/"; dir = dir.parent_path()) text += Miss(dir.string());
    return text + Miss("");
  }
  ZYNTestTempTree tree;
  std::string root = tree.Root();
};

const char* const kShortHelp =
    "Zynthar Media checker tools.\nThis tool checks a media ( as filetree or as physical support ) to ensure that "
    "its not corrupted. This tool can also make a media 'checkable' which allows to check its content later.\n"
    "Usage :\n"
    "\t# check (to ensure that no data corruption has occured) : {ZYNInsMediaCheck fullpath} [-CD1Path {cd1path}] "
    "[-cds 2,4] [-xml {xml filepath}] [-quiet]\n"
    "Mandatory:\nOptional:\n"
    "\t\t-xml      : generates an xml log file in {xml_filepath}.(otherwise the xml log is created only in check "
    "mode and if there are errors ( under OS's temporary folder such as %TEMP% / $TMP)\n"
    "\t\t-quiet    : to deactivate console logging.\n"
    "\t\t-CD1Path  : to specify CD1 full path. (CD1 is where the 'meta.TOCxml' file and '0data' folder are "
    "present; if not specified, the process will try to guess it using the Executable full path)\n"
    "\t\t-cds      : a list ( ,-separated ) of CD number to check; by default all volumes of the media are "
    "checked.\n"
    "\t\t-n        : where n is a CD number greater than 1. This argument allows you to specify custom path for "
    "subsequent volume number. \n"
    "\t\t-h        : print this help.\n"
    "Exit codes:\n\t\t 0: media check successful.\n\t\t 1: media check reported some errors.\n"
    "\t\t 2: invalid argument(s) or execution error.\n";

const char* const kExtendedHelp =
    "Zynthar Media checker tools.\nThis tool checks a media ( as filetree or as physical support ) to ensure that "
    "its not corrupted. This tool can also make a media 'checkable' which allows to check its content later.\n"
    "Usage :\n"
    "\t# generate (to make a media 'checkable') : {ZYNInsMediaCheck fullpath} -generate [-relinfo {relinfo "
    "filepath}] [-CD1Path {cd1path}] [-refDir {input xml filepath}] [-xml {xml filepath}] [-quiet]\n"
    "\t# check (to ensure that no data corruption has occured) : {ZYNInsMediaCheck fullpath} [-CD1Path {cd1path}] "
    "[-refDir {input xml filepath}] [-cds 2,4] [-xml {xml filepath}] [-quiet]\n"
    "Mandatory:\nOptional:\n"
    "\t\t-relinfo  : a path to a relinfo file. Adds infomation into the generated MediaContent.xml file. (only "
    "for generate mode)\n"
    "\t\t-generate : active the generate mode. Instead of trying to check, it will scan the media filetree to "
    "create a MediaContent file into 0data folder. (this mode requires a media in filetree form)\n"
    "\t\t-xml      : generates an xml log file in {xml_filepath}.(otherwise the xml log is created only in check "
    "mode and if there are errors ( under OS's temporary folder such as %TEMP% / $TMP)\n"
    "\t\t-quiet    : to deactivate console logging.\n"
    "\t\t-CD1Path  : to specify CD1 full path. (CD1 is where the 'meta.TOCxml' file and '0data' folder are "
    "present; if not specified, the process will try to guess it using the Executable full path)\n"
    "\t\t-refDir   : a path to a reference folder in order to use specific output/input.( In checker mode, the "
    "folder must contains extact filetree ie things like 1/0data/MediaContent.xml 2/0data/MediaContent.xml [...] )\n"
    "\t\t-cds      : a list ( ,-separated ) of CD number to check; by default all volumes of the media are "
    "checked.\n"
    "\t\t-n        : where n is a CD number greater than 1. This argument allows you to specify custom path for "
    "subsequent volume number. \n"
    "\t\t-h        : print this help.\n"
    "\t\t-hh       : print this help in extended format.\n"
    "Exit codes:\n\t[In generate mode]\n\t\t 0: xml reference file generated successfully.\n"
    "\t\t 2: invalid argument(s) or execution error.\n\t[In Check mode]\n\t\t 0: media check successful.\n"
    "\t\t 1: media check reported some errors.\n\t\t 2: invalid argument(s) or execution error.\n";

TEST(MediaCheckExecutable, HelpWinsOverEverythingElseOnTheLineAndExitsWithZero) {
  struct Case {
    std::vector<std::string> args;
    std::string expected;
  } cases[] = {
      {{"-h"}, kShortHelp},           {{"/?"}, kShortHelp},
      {{"-hh"}, kExtendedHelp},       {{"/??"}, kExtendedHelp},
      {{"-h", "-quiet"}, kShortHelp}, {{"-bogus", "-cds", "x", "/?"}, kShortHelp},
      {{"-h", "/??"}, kExtendedHelp}, {{"-xml", "/tmp/zyn-cli-untouched.xml", "-h"}, kShortHelp},
  };
  for (auto const& c : cases) {
    ChildResult r = RunZyn(c.args);
    EXPECT_EQ(r.out, c.expected) << c.args[0];
    EXPECT_EQ(r.status, 0) << c.args[0];
  }
  EXPECT_FALSE(fs::exists("/tmp/zyn-cli-untouched.xml"));
}

// Refusals met ahead of the media detection still find the media "physical" and pause.
TEST(MediaCheckExecutable, RefusesBadCommandLinesWithTheirWordsAndPauses) {
  const std::string cd1 = "/nowhere/1";
  struct Case {
    std::vector<std::string> args;
    std::string message;
  } cases[] = {
      {{"-relinfo"}, "-relinfo: missing value(s)"},
      {{"-refDir"}, "-refDir: missing value(s)"},
      {{"-xml"}, "-xml: missing value(s)"},
      {{"-CD1Path"}, "-CD1Path: missing value(s)"},
      {{"-cds"}, "-cds: missing value(s)"},
      {{"-cds", ","}, "-cds: missing value(s)"},
      {{"-cds", "2,x"}, "x: invalid argument"},
      {{"-cds", "02"}, "02: invalid argument"},
      {{"-cds", "+2"}, "+2: invalid argument"},
      {{"-cds", "2x"}, "2x: invalid argument"},
      {{"-xml", "/nowhere/r.xml"},
       "/nowhere/r.xml No such file or directory\n\n-xml: unable to write to /nowhere/r.xml"},
      {{"-nogui", "-nogui"}, "-nogui: invalid argument"},
      {{"a", "-CD1Path", cd1, "b"}, "a: invalid argument\nb: invalid argument"},
      {{"-CD1Path", cd1, "-2"}, "-2: invalid argument"},
      {{"-generate", "-relinfo", "-xml", "out.xml", "-CD1Path", cd1}, "out.xml: invalid argument"},
      {{"-generate", "-cds", "2", "-CD1Path", cd1},
       "Invalid argument combination! [-generate] cannot be used with [-cds]"},
      {{"-generate", "-3", "/p3", "-CD1Path", cd1},
       "Invalid argument combination! [-generate] cannot be used with [-cds]"},
      {{"-relinfo", "r.xml", "-CD1Path", cd1},
       "Invalid argument combination! [-relinfo] must be used with [-generate]"},
      {{"-generate", "-CD1Path", "/nowhere/media"}, "Generate mode and physical CD, or no CD direcories"},
      {{"-generate", "-CD1Path", "1"}, "Generate mode and physical CD, or no CD direcories"},
  };
  for (auto const& c : cases) {
    ChildResult r = RunZyn(c.args);
    EXPECT_EQ(r.out, Block(c.message) + kPause) << c.args[0] << " " << c.message;
    EXPECT_EQ(r.status, 2) << c.message;
  }
}

TEST(MediaCheckExecutable, QuietRefusalIsSilentUnlessDebugDisplayShowsIt) {
  const std::string where = "[DEBUG]{ZYNInsMediaCheckerOptions::ProcessOptions}";
  const std::string block = Block("-quiet: invalid argument");
  struct Case {
    std::vector<std::string> args;
    std::vector<std::string> env;
    std::string expected;
  } cases[] = {
      {{"-quiet", "-relinfo"}, {}, ""},
      {{"-quiet", "-quiet"}, {}, ""},
      {{"-quiet", "-quiet"},
       {"ZYN_DEBUG_DISPLAY=1", "ZYN_DEBUG_WAIT="},
       where + "process Options (arg count : 3)\n[DEBUG]" + where + " checking options ...\n" + where +
           " argument leftover : -quiet,\n[DEBUG]{ZYNInsMsg::TracePrint} " + block +
           "[DEBUG]{ZYNInsMediaCheckerServices::DisplayError}" + block},
      {{"-cds", "1,y"},
       {"ZYN_DEBUG_DISPLAY=1"},
       where + "process Options (arg count : 3)\n" + where + " (-cds) invalid index value : y\n" +
           Block("y: invalid argument") + "[DEBUG]{ZYNInsMediaCheckerServices::DisplayError}" +
           Block("y: invalid argument") + kPause},
  };
  for (auto const& c : cases) {
    ChildResult r = RunZyn(c.args, c.env);
    EXPECT_EQ(r.out, c.expected) << c.args[1];
    EXPECT_EQ(r.status, 2);
  }
}

TEST_F(MediaCheckOnTree, DetectsTheShapeOfTheMediaAndPrintsTheBanner) {
  Dirs({"tree/1", "tree/4", "mnt", "big/3/0data", "big/3/sub/1", "big/4/sub/2", "am/0data", "am/sub/1"});
  File("big/3/3.txt");
  File("am/3.txt");
  const std::string tree1 = P("tree/1"), big1 = P("big/3/sub/1"), am1 = P("am/sub/1");
  const std::string ref = "//0data/MediaContent.xml";
  struct Case {
    std::vector<std::string> args;
    std::string expected;
    bool removesItself;
  } cases[] = {
      {{"-CD1Path", tree1},
       "{Checker Mode}\n{CD to check : all}\n{CD1 path : " + tree1 + "}\n" +
           NoReference(Misses("tree"), tree1 + ref, kTempReport),
       false},
      {{"-CD1Path", tree1, "-dup", "-cds", "2,,4", "-refDir", "R", "-xml", P("r.xml"), "-4", P("tree/4"), "-1", "/x"},
       "{Checker Mode}\n{CD to check : 2,4}\n{Reference folder : R}\n{Custom Xml report file : " + P("r.xml") +
           "}\n{CD4 path : " + P("tree/4") + "}\n{CD1 path : " + tree1 + "}\n" +
           NoReference(Misses("tree"), "R/1" + ref, P("r.xml")),
       false},
      {{"-generate", "-relinfo", "info.xml", "-CD1Path", tree1},
       "{Generator Mode}\n{ReleaseInfo file : info.xml}\n{CD1 path : " + tree1 + "}\n" +
           Block("\n\"info.xml\" input file is missing or cannot be accessed") +
           "\nOperation terminated with error(s)\n\n",
       false},
      {{"-CD1Path", P("mnt"), "-dup"},
       "{Checker Mode}\n{Physical Media}\n{CD to check : all}\n{CD1 path : " + P("mnt") + "}\n" +
           NoReference(Misses(""), P("mnt") + ref, kTempReport),
       true},
      {{"-CD1Path", big1, "-2", P("big/4")},
       "{Checker Mode}\n{Assembly Media}\n{CD to check : all}\n{CD2 path : " + P("big/4/sub/2") +
           "}\n{CD1 path : " + big1 + "}\n" + NoReference(Miss(P("big/3/sub")), big1 + ref, kTempReport),
       false},
      {{"-CD1Path", big1, "-2", P("tree")},
       "{Checker Mode}\n{Assembly Media}\n{CD to check : all}\nInvalid AM-CD2 path ! the path to the sub-Media "
       "volume does not exist : " +
           P("tree/sub/2") + "{CD1 path : " + big1 + "}\n" + Block(Miss(P("big/3/sub")) + "Invalid argument(s)"),
       false},
      {{"-CD1Path", am1, "-dup"},
       "{Checker Mode}\n{Physical Media}\n{Assembly Media}\n{CD to check : all}\n{CD1 path : " + am1 + "}\n" +
           NoReference(Miss(P("am/sub")), am1 + ref, kTempReport),
       true},
  };
  // A second run on a physical media removes its own executable: run a copy.
  const std::string exe = P("ZYNInsMediaCheck");
  for (auto const& c : cases) {
    fs::copy_file(ZYN_EXE_PATH, exe, fs::copy_options::overwrite_existing);
    ChildResult r = RunZyn(c.args, {}, root, exe);
    EXPECT_EQ(r.out, c.expected) << c.args[1];
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(fs::exists(exe), !c.removesItself) << c.args[1];
  }
  EXPECT_TRUE(fs::exists(P("r.xml")));
}

// A two-volume media laid into volumes 3 and 4 of a larger one: each volume is found and
// named by the larger media's number.
TEST_F(MediaCheckOnTree, AssemblyMediaVolumesBearTheLargerMediasNumbers) {
  ChildResult r = RunZyn({"-c",
                          "mkdir -p m/1 m/2 big/1 big/2 big/3/0data big/3/sub big/4/sub && echo a > m/1/f && echo b "
                          "> m/2/g && \"$0\" -generate -quiet -CD1Path \"$PWD/m/1\" && mv m/1 big/3/sub && mv m/2 "
                          "big/4/sub && touch big/3/3.txt && exec \"$0\" -CD1Path \"$PWD/big/3/sub/1\" -xml r.xml",
                          ZYN_EXE_PATH},
                         {}, root, "/bin/sh");
  EXPECT_EQ(r.out,
            "{Checker Mode}\n{Assembly Media}\n{CD to check : all}\n{Custom Xml report file : r.xml}\n{CD1 path : " +
                P("big/3/sub/1") +
                "}\n<AssemblyMedia Volume 3 - Media Volume 1>\n[AMCD3-CD1](100%)\t/f\n<AssemblyMedia Volume 4 - "
                "Media Volume 2>\n[AMCD4-CD2](100%)\t/g\n{Finalizing verifications ...}\n\n\n\nMedia check "
                "completed\n\n\n\nStatus: PASSED\n\n");
  EXPECT_EQ(r.status, 0);
}

TEST_F(MediaCheckOnTree, RefusesAnAssemblyMediaWithoutVolumeIndex) {
  Dirs({"big/3/0data", "big/3/sub/1", "vol/1/0data"});
  // The first ".txt" is not at the end of the name: no index file.
  File("big/3/3.txt.txt");
  ChildResult r = RunZyn({"-CD1Path", P("big/3/sub/1")}, {}, root);
  EXPECT_EQ(r.out, Block(Miss(P("big/3/sub")) + "The given Assembly Media " + P("big/3/sub/1") +
                         " does not contains volume file(s) !") +
                       kPause);
  EXPECT_EQ(r.status, 2);
  // A "0data" in the working directory is volume 1's own when the path is absolute.
  r = RunZyn({"-CD1Path", P("vol/1"), "-xml", P("r.xml")}, {}, P("vol/1"));
  EXPECT_EQ(r.out.find("{Checker Mode}\n{CD to check : all}\n"), 0u) << r.out;
  // A relative path has the working directory among its ancestors: "0data" there counts.
  r = RunZyn({"-CD1Path", "sub/1"}, {}, P("vol/1"));
  EXPECT_EQ(r.out, Block(Miss("sub") +
                         "Input path is empty\n\nThe given Assembly Media sub/1 does not contains volume file(s) !") +
                       kPause);
}

TEST_F(MediaCheckOnTree, DerivesVolumeOneFromWhereTheExecutableStands) {
  Dirs({"media/1/bin/x"});
  fs::copy_file(ZYN_EXE_PATH, P("media/1/bin/x/ZYNInsMediaCheck"));
  const std::string expected = "{Checker Mode}\n{CD to check : all}\n{CD1 path : " + P("media/1") + "}\n" +
                               NoReference(Misses("media"), P("media/1") + "//0data/MediaContent.xml", kTempReport);
  for (std::string exe : {P("media/1/bin/x/ZYNInsMediaCheck"), std::string("./media/1/bin/x/ZYNInsMediaCheck")}) {
    ChildResult r = RunZyn({}, {}, root, exe);
    EXPECT_EQ(r.out, expected) << exe;
    EXPECT_EQ(r.status, 2);
  }
}

// What stands at the -xml path before the run: a link gives way to the report and its
// target is left alone; a character device is written in place and kept; what can hold
// no report is refused at once, and a FIFO no longer blocks the run.
TEST_F(MediaCheckOnTree, ReportPathIsProbedByWhatStandsThere) {
  tree.File("victim", "keep");
  const std::string x = P("x");
  const struct {
    char const* name;
    std::function<int()> make;
    unsigned typeAfter;
    std::string refusal;
  } cases[] = {
      {"link", [&] { return symlink(P("victim").c_str(), x.c_str()); }, S_IFREG, ""},
      {"character device", [&] { return mknod(x.c_str(), S_IFCHR | 0666, makedev(1, 3)); }, S_IFCHR, ""},
      {"FIFO", [&] { return mkfifo(x.c_str(), 0666); }, S_IFIFO, "-xml: unable to write to " + x},
      {"folder", [&] { return mkdir(x.c_str(), 0755); }, S_IFDIR,
       x + " Is a directory\n\n-xml: unable to write to " + x},
      {"block device", [&] { return mknod(x.c_str(), S_IFBLK | 0600, makedev(7, 250)); }, S_IFBLK,
       "-xml: unable to write to " + x},
  };
  for (auto const& c : cases) {
    ASSERT_EQ(c.make(), 0) << c.name;
    ChildResult r = RunZyn({"-s", "KILL", "30", ZYN_EXE_PATH, "-CD1Path", P("1"), "-xml", x}, {}, root, kTimeout);
    EXPECT_EQ(r.status, 2) << c.name;
    if (c.refusal.empty()) {
      EXPECT_NE(r.out.find("A report file has been written to " + x), std::string::npos) << c.name;
    } else {
      EXPECT_EQ(r.out, Block(c.refusal) + kPause) << c.name;
    }
    struct stat status;
    EXPECT_EQ(lstat(x.c_str(), &status) == 0 ? status.st_mode & S_IFMT : 0, c.typeAfter) << c.name;
    EXPECT_EQ(tree.Read("victim"), "keep") << c.name;
    ZYNAdmStdLib::Delete(ZYNTestD(x));
  }
}

// A physical media with one altered file, checked by the media's own executable, which
// moves to a fresh copy (a link planted at the copy's name goes, its target stays), or
// by one already standing in the temporary folder, which checks in place and stays.
TEST(MediaCheckInPrivateTmp, PhysicalMediaIsCheckedFromTheTemporaryFolder) {
  if (RunInPrivateTmp("true").status != 0) GTEST_SKIP() << "no private mount namespace here";
  const std::string media =
      "mkdir -p t/1/bin/x && cp \"$0\" t/1/bin/x/ZYNInsMediaCheck && echo a > t/1/f && "
      "\"$0\" -generate -quiet -CD1Path /tmp/t/1 && mv t/1 mnt && echo b > mnt/f && echo keep > victim && ";
  const std::string after = "; echo \"status $?\"; cat victim; ls ZYNInsMediaCheck";
  const struct {
    char const* name;
    std::string run, tail;
  } cases[] = {
      {"from the media", "ln -s /tmp/victim ZYNInsMediaCheck && mnt/bin/x/ZYNInsMediaCheck", "status 1\nkeep\n"},
      {"from the temporary folder", "cp \"$0\" ZYNInsMediaCheck && /tmp/ZYNInsMediaCheck -CD1Path /tmp/mnt",
       "status 1\nkeep\nZYNInsMediaCheck\n"},
  };
  for (auto const& c : cases) {
    ChildResult r = RunInPrivateTmp(media + c.run + after);
    EXPECT_EQ(r.out.find("{Checker Mode}\n{Physical Media}\n{CD to check : all}\n{CD1 path : /tmp/mnt}\n"), 0u)
        << c.name << r.out;
    EXPECT_NE(r.out.find("Status: FAILED\n\nA report file has been written to /tmp/MediaCheck_report.xml\n\n" + c.tail),
              std::string::npos)
        << c.name << r.out;
  }
}

// The default report is written only where a check fails: a passed check leaves the one
// already there as it was.
TEST(MediaCheckInPrivateTmp, PassedCheckLeavesTheDefaultReportAlone) {
  if (RunInPrivateTmp("true").status != 0) GTEST_SKIP() << "no private mount namespace here";
  ChildResult r = RunInPrivateTmp(
      "mkdir -p t/1 && echo a > t/1/f && \"$0\" -generate -quiet -CD1Path /tmp/t/1 && echo old > MediaCheck_report.xml "
      "&& "
      "\"$0\" -quiet -CD1Path /tmp/t/1; echo \"status $?\"; cat MediaCheck_report.xml");
  EXPECT_EQ(r.out, "status 0\nold\n");
}

// Shell function: waits until the program traced by the strace `$1` is held at the call
// numbered `$2` while the test `$3` holds.
const std::string kHeld =
    "held() { until eval \"$3\" && c=$(cat /proc/$1/task/$1/children) && grep -q \"^$2 \" /proc/${c%% *}/syscall; "
    "do :; done 2>/dev/null; }; ";

// The copy's name taken by another program at each step of the move: planted between
// the unlink and the create, swapped in before the check of the inode or after it (each
// held by strace at that call until the swap is done); or a copy cut short by a file
// size limit. The other program never runs, and only the swap after the check may go on.
TEST(MediaCheckInPrivateTmp, NoOtherProgramRunsInPlaceOfTheCopy) {
  if (access("/usr/bin/strace", X_OK) != 0 || RunInPrivateTmp("true").status != 0) GTEST_SKIP() << "no strace";
  const std::string media =
      "mkdir -p t/1 && echo a > t/1/f && \"$0\" -generate -quiet -CD1Path /tmp/t/1 && mv t/1 mnt && "
      "printf '#!/bin/sh\\necho other ran\\n' > other && chmod 755 other && echo old > ZYNInsMediaCheck && " +
      kHeld;
  auto swap = [](std::string const& calls, std::string const& stop, std::string const& held) {
    return "strace -qq -o /dev/null -e trace=" + calls + " -e inject=" + calls + ":" + stop +
           "=300000:when=1 \"$0\" -CD1Path /tmp/mnt & held $! " + held + "; mv other ZYNInsMediaCheck; wait $!";
  };
  const struct {
    std::string run, shown;
    int status;
  } cases[] = {
      {swap("unlink", "delay_exit", "87 '[ ! -e ZYNInsMediaCheck ]'"), "/tmp//ZYNInsMediaCheck File exists\n", 2},
      {swap("fchmod", "delay_enter", "91 true"), "\n\nInternal error\n\n", 2},
      {swap("execve,execveat", "delay_enter", "'\\(59\\|322\\)' '[ -x ZYNInsMediaCheck ]'"), "Status: PASSED", 0},
      {"(trap '' XFSZ; ulimit -f 64; exec \"$0\" -CD1Path /tmp/mnt)", "/tmp//ZYNInsMediaCheck File too large\n", 2},
  };
  for (auto const& c : cases) {
    ChildResult r = RunInPrivateTmp(media + c.run + "; echo \"status $?\"");
    EXPECT_NE(r.out.find(c.shown), std::string::npos) << c.run << r.out;
    EXPECT_NE(r.out.find("status " + std::to_string(c.status) + "\n"), std::string::npos) << c.run << r.out;
    EXPECT_EQ(r.out.find("other ran"), std::string::npos) << c.run << r.out;
  }
}

// The walk on real file systems: a folder that is the root of a second one shares inode
// 1 with the volume's root and is no loop; a link to a sibling folder walked before is
// walked again, and one to the folder it stands in is refused right there; a file swapped
// for a FIFO between the listing and the open (the listing's last read held by strace,
// once its first has given the names) is an access failure, never an empty file.
TEST(MediaCheckInPrivateTmp, WalkTellsLoopsAndFilesByWhatTheyAre) {
  if (access("/usr/bin/strace", X_OK) != 0 || RunInPrivateTmp("true").status != 0) GTEST_SKIP() << "no strace";
  const struct {
    std::string run, shown;
  } cases[] = {
      {"mount -t tmpfs v t/1 && mkdir t/1/s && mount -t tmpfs s t/1/s && echo a > t/1/s/f && ln -s s t/1/z && "
       "\"$0\" -generate -quiet -CD1Path /tmp/t/1; echo \"status $?\"; grep -c '/[sz]/f' t/1/0data/MediaContent.xml",
       "status 0\n2\n"},
      {"mkdir t/1/d && ln -s . t/1/d/self && \"$0\" -generate -CD1Path /tmp/t/1 -xml r.xml 2>&1",
       "\"/tmp/t/1//d/self\" Too many levels of symbolic links\n"},
      {"echo a > t/1/f && strace -f -qq -o trace -P /tmp/t/1 -e trace=getdents64 -e "
       "inject=getdents64:delay_exit=1000000:when=2 \"$0\" -generate -CD1Path /tmp/t/1 & "
       "until grep -q '= [1-9]' trace 2>/dev/null; do :; done; rm t/1/f && mkfifo t/1/f; wait $!; echo \"status $?\"",
       "\"/f\" Access error\n\n\n\nOperation terminated with error(s)\n\nstatus 2\n"},
  };
  for (auto const& c : cases) {
    ChildResult r = RunInPrivateTmp("mkdir -p t/1 && " + c.run);
    EXPECT_NE(r.out.find(c.shown), std::string::npos) << c.run << r.out;
  }
}

}  // namespace

// Faults of the run's surroundings, each in its own /tmp: a report another user planted
// with mode 0666 doesn't hand them root's report; a temporary folder mounted noexec keeps
// no copy; of two checks of one media at once, the first to end leaves the other's copy.
TEST(MediaCheckInPrivateTmp, SurroundingsOfTheRunChangeNoVerdictAndLeaveNothing) {
  if (RunInPrivateTmp("true").status != 0) GTEST_SKIP() << "no private mount namespace here";
  const std::string media =
      "mkdir -p m && mount -t tmpfs m /tmp/m && mkdir -p m/t/1/bin/x && "
      "cp \"$0\" m/t/1/bin/x/ZYNInsMediaCheck && echo a > m/t/1/f && ";
  const std::string seal = "\"$0\" -generate -quiet -CD1Path /tmp/m/t/1 >/dev/null && mv m/t/1 m/mnt && ";
  const struct {
    char const* name;
    std::string run, out;
  } cases[] = {
      {"planted report",
       "\"$0\" -generate -quiet -CD1Path /tmp/m/t/1 >/dev/null && touch r && chown nobody r && chmod 0666 r && mv r "
       "MediaCheck_report.xml && echo b > m/t/1/f && umask 022 && "
       "\"$0\" -quiet -CD1Path /tmp/m/t/1 >/dev/null; echo \"status $?\"; stat -c '%a %U' MediaCheck_report.xml",
       "status 1\n644 root\n"},
      {"noexec",
       seal + "mount -o remount,noexec /tmp && m/mnt/bin/x/ZYNInsMediaCheck -quiet >/dev/null; "
              "echo \"status $?\"; ls /tmp",
       "status 2\nm\n"},
      {"two at once",
       "head -c 200000000 /dev/zero > m/t/1/big && " + seal +
           "true; (m/mnt/bin/x/ZYNInsMediaCheck -quiet >/dev/null; echo \"A $?\" >> m/s) & sleep 0.1; "
           "m/mnt/bin/x/ZYNInsMediaCheck -quiet >/dev/null; echo \"B $?\" >> m/s; wait; sort m/s; ls /tmp",
       "A 0\nB 0\nm\n"},
  };
  for (auto const& c : cases) {
    ChildResult r = RunInPrivateTmp(media + c.run);
    if (std::string(c.name) == "planted report" && r.out.find("chown") != std::string::npos) continue;
    EXPECT_EQ(r.out, c.out) << c.name;
  }
}
