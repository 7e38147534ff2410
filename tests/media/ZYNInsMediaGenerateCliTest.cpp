// Generate mode as a user runs it: the real executable on small media trees, its console
// output, its exit status and the bytes of every reference file it writes.
#include <gtest/gtest.h>
#include <utime.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "ZYNAdmInputFile.h"
#include "ZYNAdmSHA256.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlHash.h"
#include "ZYNAdmXmlParser.h"
#include "support/ChildProcess.h"
#include "support/ZYNTestTempTree.h"

namespace fs = std::filesystem;

namespace {

const std::string kHeader = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n";
const std::string kTime = "1600000000";
const std::string kDone = "\nOperation terminated successfully\n\n";
const std::string kFailed = "\nOperation terminated with error(s)\n\n";
// Known digests, so that the expectations don't lean on the code under test.
const std::map<std::string, std::string> kDigest = {
    {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"a", "ca978112ca1bbdcafac231b39a23dc4da786eff8147c4e72b9807785afee48bb"},
    {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
};

std::string Block(std::string const& text) { return "\n\nError\n" + text + "\n\n"; }

std::string Sha256(std::string const& bytes) {
  ZYNAdmSHA256 digest;
  digest.Open();
  digest.Write(reinterpret_cast<unsigned char*>(const_cast<char*>(bytes.data())), static_cast<int>(bytes.size()));
  digest.Close();
  return ZYNTestS(digest.GetHash());
}

// Replaces the placeholder "@" by the seal that the compact form (no line ends, no tabs,
// the seal holding its bare prefix) hashes to.
std::string Sealed(std::string const& laidOut) {
  std::string compact;
  for (char c : laidOut) {
    if (c != '\n' && c != '\t') compact += c;
  }
  std::string seal = Sha256(compact.replace(compact.find('@'), 1, ""));
  std::string file = laidOut;
  return file.replace(file.find('@'), 1, seal);
}

std::string SealOf(std::string const& file) {
  size_t at = file.find("SHA256_v1_") + 10;
  return file.substr(at, 64);
}

// A media of volumes "1", "2" under `media/`, files given by path and content.
struct Media {
  ZYNTestTempTree tree;
  std::map<std::string, std::string> digests;  // volume-relative path with "n:" before it

  explicit Media(std::vector<std::pair<std::string, std::string>> const& files) {
    for (auto const& f : files) {
      fs::create_directories(fs::path(tree.Path("media/" + f.first)).parent_path());
      std::string path = tree.File("media/" + f.first, f.second);
      struct utimbuf times = {1600000000, 1600000000};
      utime(path.c_str(), &times);
      size_t slash = f.first.find('/');
      if (kDigest.count(f.second))
        digests[f.first.substr(0, slash) + ":" + f.first.substr(slash)] = kDigest.at(f.second);
    }
  }
  std::string Path(std::string const& rel) const { return tree.Path("media/" + rel); }

  // The lines of one folder, in the order its directory gives the entries: those of
  // generate, or with `total` files on the volume those of check.
  std::string Lines(int cd, std::string const& rel, int total = 0) const {
    int done = 0;
    return Lines(cd, rel, total, done);
  }
  std::string Lines(int cd, std::string const& rel, int total, int& done) const {
    std::string lines, volume = "[CD" + std::to_string(cd) + "]";
    for (auto const& entry : fs::directory_iterator(Path(std::to_string(cd) + rel))) {
      std::string name = entry.path().filename().string();
      if (entry.is_directory()) lines += Lines(cd, rel + "/" + name, total, done);
      if (!entry.is_regular_file() || name == "MediaContent.xml") continue;
      std::string path = rel + "/" + name;
      std::string percent = std::to_string(++done * 100 / (total - 1));
      lines += total == 0 ? volume + "\ttimestamp=" + kTime + "\thash=" + digests.at(std::to_string(cd) + ":" + path) +
                                "\tpath=" + path + "\n"
                          : volume + "(" + std::string(3 - percent.size(), ' ') + percent + "%)\t" + path + "\n";
    }
    return lines;
  }

  std::string Reference(int volumes, std::string const& relData) const {
    std::string text =
        kHeader + "<Media ZYNHachageSomme=\"SHA256_v1_@\" cdid=\"1\" checkerVersion=\"1.1\">\n" + relData + "\t<CDs>\n";
    for (int cd = 1; cd <= volumes; ++cd) {
      std::string files;
      std::string prefix = std::to_string(cd) + ":";
      for (auto const& d : digests) {
        if (d.first.compare(0, prefix.size(), prefix) != 0) continue;
        files += "\t\t\t<File hash=\"" + d.second + "\" path=\"" + d.first.substr(prefix.size()) + "\" timestamp=\"" +
                 kTime + "\"/>\n";
      }
      text += files.empty() ? "\t\t<CD/>\n" : "\t\t<CD>\n" + files + "\t\t</CD>\n";
    }
    return Sealed(text + "\t</CDs>\n</Media>");
  }
};

std::string Tag(int cd, std::string const& reference, std::string const& relData) {
  return Sealed(kHeader + "<Media ZYNHachageSomme=\"SHA256_v1_@\" cdid=\"" + std::to_string(cd) +
                "\" packageHash=\"ZYNHachageSomme=SHA256_v1_" + SealOf(reference) + "\">\n" + relData + "</Media>");
}

int ParsedSealCheck(std::string const& path) {
  ZYNAdmInputFile input(ZYNTestD(path));
  ZYNAdmXmlElement root;
  if (ZYNAdmXmlParser::Parse(input, root) != 1) return -9;
  return ZYNAdmXmlHash::Check(root);
}

const std::vector<std::pair<std::string, std::string>> kTwoVolumes = {
    {"1/meta.TOCxml", "abc"}, {"1/0data/info.bin", "a"}, {"1/sub/deep/b", ""}, {"1/sub/MediaContent.xml", "x"},
    {"1/TOC", "a"},           {"2/setup", "abc"},        {"2/.hidden", ""},
};

}  // namespace

TEST(ZYNInsMediaGenerateCli, WritesTheSealedReferenceAndChainedTagsFromTheExecutablesPlace) {
  Media media(kTwoVolumes);
  std::string exe = media.Path("1/bin/x/ZYNInsMediaCheck");
  fs::create_directories(fs::path(exe).parent_path());
  fs::copy_file(ZYN_EXE_PATH, exe);
  ZYNAdmInputFile self(ZYNTestD(exe));
  media.digests["1:/bin/x/ZYNInsMediaCheck"] = ZYNTestS(ZYNAdmSHA256::GetHash(self));
  struct utimbuf times = {1600000000, 1600000000};
  utime(exe.c_str(), &times);
  std::string expectedOut = "{Generator Mode}\n{CD1 path : " + media.Path("1") + "}\n<Media Volume 1>\n" +
                            media.Lines(1, "") + "<Media Volume 2>\n" + media.Lines(2, "") + kDone;

  ChildResult r = RunZyn({"-generate"}, {}, "", exe);
  EXPECT_EQ(expectedOut, r.out);
  EXPECT_EQ(0, r.status);
  std::string reference = media.Reference(2, "\t<RelData/>\n");
  EXPECT_EQ(reference, media.tree.Read("media/1/0data/MediaContent.xml"));
  EXPECT_EQ(Tag(2, reference, "\t<RelData/>\n"), media.tree.Read("media/2/0data/MediaContent.xml"));
  EXPECT_EQ(ZYNAdmSealRight, ParsedSealCheck(media.Path("1/0data/MediaContent.xml")));
  EXPECT_EQ(ZYNAdmSealRight, ParsedSealCheck(media.Path("2/0data/MediaContent.xml")));
}

TEST(ZYNInsMediaGenerateCli, CheckOfAGeneratedMediaScansOnlyTheVolumesAskedFor) {
  Media media(kTwoVolumes);
  ASSERT_EQ(0, RunZyn({"-generate", "-quiet", "-CD1Path", media.Path("1")}).status);
  ChildResult r = RunZyn({"-CD1Path", media.Path("1"), "-cds", "2"});
  EXPECT_EQ("{Checker Mode}\n{CD to check : 2}\n{CD1 path : " + media.Path("1") + "}\n<Media Volume 2>\n" +
                media.Lines(2, "", 3) +
                "{Finalizing verifications ...}\n\n\n\nMedia check completed\n\n\n\nStatus: PASSED\n\n",
            r.out);
  EXPECT_EQ(0, r.status);
}

TEST(ZYNInsMediaGenerateCli, RefDirRelInfoAndReportLeaveTheMediaUntouched) {
  Media media(kTwoVolumes);
  std::string rel = media.tree.File("rel.xml", "<Release v=\"7\"><N>R &amp; D</N></Release>");
  std::string report = media.tree.Path("report.xml");
  ChildResult r = RunZyn({"-generate", "-quiet", "-CD1Path", media.Path("1"), "-refDir", media.tree.Path("ref"),
                          "-relinfo", rel, "-xml", report});
  EXPECT_EQ("", r.out);
  EXPECT_EQ(0, r.status);
  EXPECT_FALSE(media.tree.Exists("media/1/0data/MediaContent.xml"));
  EXPECT_FALSE(media.tree.Exists("media/2/0data"));
  std::string relData = "\t<RelData>\n\t\t<Release v=\"7\">\n\t\t\t<N>R &amp; D</N>\n\t\t</Release>\n\t</RelData>\n";
  std::string reference = media.Reference(2, relData);
  EXPECT_EQ(reference, media.tree.Read("ref/1/0data/MediaContent.xml"));
  EXPECT_EQ(Tag(2, reference, relData), media.tree.Read("ref/2/0data/MediaContent.xml"));
  // The rest of the report is Finalize's; here the release text is what matters.
  EXPECT_NE(std::string::npos,
            media.tree.Read("report.xml")
                .find("\t\t<ZirkInfo Value=\"&lt;?xml version=&quot;1.0&quot; encoding=&quot;utf-8&quot; "
                      "?>&#xA;&lt;Release v=&quot;7&quot;>&#xA;&#x9;&lt;N>R &amp;amp; D&lt;/N>&#xA;"
                      "&lt;/Release>\"/>\n"));
}

TEST(ZYNInsMediaGenerateCli, DamagedMediaEndsWithItsMessageAndStatus) {
  std::string const aLine = "[CD1]\ttimestamp=" + kTime + "\thash=" + kDigest.at("a") + "\tpath=/a\n";
  // Longer than "MediaContent.xml" and led by U+4E00, whose low byte is 0: not that name.
  std::string const cjkName = "\u4E00\u952E\u5B89\u88C5-setup-notes.txt";
  std::string const cjkLine = "[CD1]\ttimestamp=" + kTime + "\thash=" + kDigest.at("a") + "\tpath=/" + cjkName + "\n";
  struct Case {
    std::vector<std::pair<std::string, std::string>> files;
    std::string special;   // what the case adds to the media
    std::string expected;  // after the banner; "{M}" stands for the media folder
    int status;
  } cases[] = {
      // Three records: the count of the volume, the probe of the folder, the walk.
      {{},
       "link",
       "<Media Volume 1>\n" +
           Block("\"{M}/1/s/zz\" No such file or directory\n\n\"{M}/1//s/zz\" No such file or directory\n\n[CD1]\n"
                 "\"{M}/1//s/zz\" No such file or directory\n") +
           kFailed,
       2},
      // A backslash is part of the name: the file listed is the file read.
      {{{"1/x\\y", "a"}},
       "",
       "<Media Volume 1>\n[CD1]\ttimestamp=" + kTime + "\thash=" + kDigest.at("a") + "\tpath=/x\\y\n" + kDone,
       0},
      {{{"1/a", "a"}}, "fifo", "<Media Volume 1>\n" + aLine + kDone, 0},
      {{{"1/a", "a"}, {"0data/x", ""}},
       "layout",
       Block(
           "\"{M}\": a directory is missing or has an invalid name.\nCheck that all the CDs are copied in directories "
           "named\n\"<constant_prefix>1\", \"<constant_prefix>2\",..., \"<constant_prefix>n\"\nand no other "
           "directory is present.\n") +
           kFailed,
       2},
      {{{"1/a", "a"}}, "relinfo", Block("\n\"{M}/none.xml\" input file is missing or cannot be accessed") + kFailed, 2},
      {{{"1/" + cjkName, "a"}}, "cjk", "<Media Volume 1>\n" + cjkLine + kDone, 0},
  };
  for (Case const& c : cases) {
    Media media(c.files);
    std::string const root = media.tree.Path("media");
    std::vector<std::string> args = {"-generate", "-CD1Path", root + "/1"};
    std::string banner = "{Generator Mode}\n{CD1 path : " + root + "/1}\n";
    if (c.special == "link") {
      fs::create_directories(root + "/1/s");
      media.tree.Link("/nonexistent", "media/1/s/zz");
    }
    if (c.special == "fifo") media.tree.Fifo("media/1/pipe");
    if (c.special == "relinfo") {
      args.insert(args.end(), {"-relinfo", root + "/none.xml"});
      banner = "{Generator Mode}\n{ReleaseInfo file : " + root + "/none.xml}\n{CD1 path : " + root + "/1}\n";
    }
    std::string expected = banner + c.expected;
    for (size_t at; (at = expected.find("{M}")) != std::string::npos;) expected.replace(at, 3, root);

    std::vector<std::string> env;
    if (c.special == "cjk") env = {"LANG=C.UTF-8", "QRTReffilesPath=" + std::string(ZYN_SOURCE_DIR) + "/reffiles"};
    ChildResult r = RunZyn(args, env);
    EXPECT_EQ(expected, r.out) << c.special;
    EXPECT_EQ(c.status, r.status) << c.special;
    EXPECT_EQ(c.status == 0, media.tree.Exists("media/1/0data/MediaContent.xml")) << c.special;
  }
}

// Files read whole (the reference, -relinfo) that are no regular file count as missing.
TEST(ZYNInsMediaGenerateCli, InputsThatAreNoRegularFileCountAsMissing) {
  const struct { bool fifo, relinfo; } cases[] = {{true, false}, {false, false}, {true, true}, {false, true}};
  for (auto const& c : cases) {
    Media media(kTwoVolumes);
    std::string cd1 = media.Path("1");
    ASSERT_EQ(0, RunZyn({"-generate", "-quiet", "-CD1Path", cd1}).status);
    std::string odd = c.relinfo ? media.tree.Path("rel.xml") : cd1 + "/0data/MediaContent.xml";
    std::remove(odd.c_str());
    if (c.fifo) mkfifo(odd.c_str(), 0644);
    if (!c.fifo) fs::create_symlink("/dev/urandom", odd);
    std::vector<std::string> args = {"-quiet", "-CD1Path", cd1, "-xml", media.tree.Path("r.xml")};
    if (c.relinfo) args.insert(args.end(), {"-generate", "-relinfo", odd});
    EXPECT_EQ(2, RunZyn(args).status) << c.fifo << c.relinfo;
    std::string shown = c.relinfo ? odd : cd1 + "//0data/MediaContent.xml";
    EXPECT_NE(std::string::npos, media.tree.Read("r.xml").find("&quot;" + shown + "&quot; input file is missing"));
  }
}

// A link planted at a tag's place is replaced, its target untouched; a reference keeps
// its mode under a umask that would narrow it. A rewrite that can't finish (no file may
// grow, the flush to disk fails) leaves the good reference whole and nothing beside it.
TEST(ZYNInsMediaGenerateCli, WritesReplaceWholeFilesOrNothing) {
  Media media(kTwoVolumes);
  std::string cd1 = media.Path("1");
  std::string victim = media.tree.File("victim", "keep");
  fs::create_directories(media.Path("2/0data"));
  media.tree.Link(victim, "media/2/0data/MediaContent.xml");
  ASSERT_EQ(0, RunZyn({"-generate", "-quiet", "-CD1Path", cd1}).status);
  EXPECT_EQ("keep", media.tree.Read("victim"));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(media.Path("2/0data/MediaContent.xml"))));
  EXPECT_EQ(ZYNAdmSealRight, ParsedSealCheck(media.Path("2/0data/MediaContent.xml")));
  chmod((cd1 + "/0data/MediaContent.xml").c_str(), 0604);
  std::string rel = media.tree.File("rel.xml", "<R>" + std::string(300000, 'x') + "</R>");
  std::vector<std::string> generate = {ZYN_EXE_PATH, "-generate", "-quiet", "-CD1Path", cd1, "-relinfo", rel};
  generate.insert(generate.begin(), {"-c", "umask 077; exec \"$0\" \"$@\""});
  ASSERT_EQ(0, RunZyn(generate, {}, "", "/bin/sh").status);
  EXPECT_EQ(0604u, media.tree.Mode("media/1/0data/MediaContent.xml"));

  std::string good = media.tree.Read("media/1/0data/MediaContent.xml");
  media.tree.File("media/1/TOC", "abc");
  const std::vector<std::string> faults[] = {
      {"/bin/sh", "-c", "trap '' XFSZ; ulimit -f 0; exec \"$0\" \"$@\""},
      {"/usr/bin/strace", "-qq", "-o", "/dev/null", "-e", "trace=fsync", "-e", "inject=fsync:error=EIO"},
  };
  for (auto const& fault : faults) {
    std::vector<std::string> args(fault.begin() + 1, fault.end());
    args.insert(args.end(), generate.begin() + 2, generate.end());
    EXPECT_EQ(2, RunZyn(args, {"ASAN_OPTIONS=detect_leaks=0"}, "", fault[0]).status) << fault.back();
    EXPECT_EQ(good, media.tree.Read("media/1/0data/MediaContent.xml")) << fault.back();
    EXPECT_EQ(2, std::distance(fs::directory_iterator(cd1 + "/0data"), {}));  // info.bin and the reference
  }
}

// A swap the file system can't make (EINVAL) is done as a rename; any other failure of a
// swap puts the old set back: on a media that had none, the files already in go again.
TEST(ZYNInsMediaGenerateCli, SwapThatFailsPutsTheOldSetBack) {
  if (access("/usr/bin/strace", X_OK) != 0) GTEST_SKIP() << "no strace";
  const struct {
    char const* inject;
    int status;
  } cases[] = {{"renameat2:error=EINVAL", 0}, {"renameat2:error=EIO:when=2", 2}};
  for (auto const& c : cases) {
    Media media(kTwoVolumes);
    std::string cd1 = media.Path("1");
    std::vector<std::string> args = {"-qq",
                                     "-o",
                                     "/dev/null",
                                     "-e",
                                     "trace=renameat2",
                                     "-e",
                                     std::string("inject=") + c.inject,
                                     ZYN_EXE_PATH,
                                     "-generate",
                                     "-quiet",
                                     "-CD1Path",
                                     cd1};
    EXPECT_EQ(c.status, RunZyn(args, {"ASAN_OPTIONS=detect_leaks=0"}, "", "/usr/bin/strace").status) << c.inject;
    EXPECT_EQ(c.status == 0, fs::exists(cd1 + "/0data/MediaContent.xml")) << c.inject;
    EXPECT_EQ(c.status == 0 ? 2 : 1, std::distance(fs::directory_iterator(cd1 + "/0data"), {})) << c.inject;
    EXPECT_EQ(c.status == 0 ? 1 : 0, std::distance(fs::directory_iterator(media.Path("2/0data")), {})) << c.inject;
  }
}

// A read fault where the end of the file would close the document cleanly.
TEST(ZYNInsMediaGenerateCli, ReadFaultIsAnAccessFailureNotTheEnd) {
  if (access("/usr/bin/strace", X_OK) != 0) GTEST_SKIP() << "no strace";
  Media media(kTwoVolumes);
  std::string rel = media.tree.File("rel.xml", "<R>" + std::string(4089, ' ') + "<p/></R>");
  std::vector<std::string> trace = {
      "-qq", "-o", "/dev/null", "-P", rel, "-e", "trace=read", "-e", "inject=read:error=EIO:when=2+", ZYN_EXE_PATH};
  trace.insert(trace.end(), {"-generate", "-CD1Path", media.Path("1"), "-relinfo", rel});
  // Leak detection can't run under a tracer.
  ChildResult r = RunZyn(trace, {"ASAN_OPTIONS=detect_leaks=0"}, "", "/usr/bin/strace");
  EXPECT_EQ(2, r.status);
  EXPECT_NE(std::string::npos, r.out.find("\"" + rel + "\" input file is missing or cannot be accessed")) << r.out;
}

// Two-byte characters over the first block ends of the release file and the reference,
// at both offsets: generate keeps them byte for byte and the media passes its own check.
TEST(ZYNInsMediaGenerateCli, CharactersCutByABlockEndSurviveGenerateAndCheck) {
  std::string run;
  for (int i = 0; i < 3000; ++i) run += "\xC3\xA9";
  for (std::string lead : {"", "x"}) {
    Media media(kTwoVolumes);
    std::string rel = media.tree.File("rel.xml", "<R v=\"" + lead + run + "\"/>");
    ASSERT_EQ(0, RunZyn({"-generate", "-quiet", "-CD1Path", media.Path("1"), "-relinfo", rel}).status);
    EXPECT_NE(std::string::npos, media.tree.Read("media/1/0data/MediaContent.xml").find("\"" + lead + run + "\""));
    EXPECT_EQ(0, RunZyn({"-quiet", "-CD1Path", media.Path("1"), "-xml", media.tree.Path("r.xml")}).status) << lead;
  }
}

// Paths typed relative to the working directory, as the manual's own example has them:
// references are written where they lead and the texts show them as typed; an output
// folder that can't be made fails before the scan, with no file line printed.
TEST(ZYNInsMediaGenerateCli, RelativePathsWorkAndUnwritableOutputFailsBeforeTheScan) {
  const struct {
    std::vector<std::string> args;
    std::string special;  // a file where the case wants one
    std::string written;  // the reference written, or the message of the failure
  } cases[] = {
      {{"-CD1Path", "media/1"}, "", "media/1/0data/MediaContent.xml"},
      {{"-CD1Path", "media/1", "-refDir", "out/refs"}, "", "out/refs/2/0data/MediaContent.xml"},
      {{"-CD1Path", "media/1"}, "media/2/0data", "Fail to create folders for : media/2/0data/MediaContent.xml"},
      {{"-CD1Path", "media/1", "-refDir", "media/1/TOC/refs"},
       "",
       "Fail to create folders for : media/1/TOC/refs/1/0data/MediaContent.xml"},
  };
  for (auto const& c : cases) {
    Media media(kTwoVolumes);
    if (!c.special.empty()) media.tree.File(c.special, "x");
    std::vector<std::string> args{"-generate"}, check{"-quiet", "-xml", "r.xml"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    check.insert(check.end(), c.args.begin(), c.args.end());
    ChildResult r = RunZyn(args, {}, media.tree.Root());
    bool fails = c.written.find("Fail") == 0;
    EXPECT_EQ(r.status, fails ? 2 : 0) << c.written << r.out;
    EXPECT_EQ(r.out.find("[CD1]") == std::string::npos, fails) << c.written;
    if (fails) {
      EXPECT_NE(r.out.find("{CD1 path : media/1}\n" + Block(c.written) + kFailed), std::string::npos) << r.out;
      continue;
    }
    EXPECT_EQ(ParsedSealCheck(media.tree.Path(c.written)), ZYNAdmSealRight) << c.written;
    EXPECT_EQ(RunZyn(check, {}, media.tree.Root()).status, 0) << c.written;
  }
}
