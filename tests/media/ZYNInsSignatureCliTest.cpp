// -sign and -pubkey as a user runs them: a media generated and signed, then checked after
// each way a hostile distributor or a careless one could have changed it; and both
// directions with the real minisign where it is installed.
#include <gtest/gtest.h>
#include <sodium.h>
#include <utime.h>

#include <cstring>
#include <filesystem>
#include <functional>

#include "ZYNAdmMinisign.h"
#include "support/ChildProcess.h"
#include "support/ZYNTestTempTree.h"

namespace fs = std::filesystem;

namespace {

typedef ZYNAdmMinisign M;

const char kSig[] = "media/1/0data/MediaContent.xml.minisig";
const char kRef[] = "media/1/0data/MediaContent.xml";

// Keys made here from fixed seeds; the locked one at a cost a test can afford.
std::string KeyFile(unsigned char seedByte, std::string const& passphrase, std::string* publicFile) {
  M::Init();
  M::SecretKey key;
  std::memset(&key, 0, sizeof key);
  unsigned char seed[32] = {seedByte};
  unsigned char publicBytes[32];
  crypto_sign_seed_keypair(publicBytes, key.secret, seed);
  for (int i = 0; i < 8; ++i) key.keyId[i] = static_cast<unsigned char>(seedByte + i);
  *publicFile = M::PublicKeyFile(key);
  return M::SecretKeyFile(key, passphrase, 32768, 1 << 20);
}

struct SignedMedia {
  ZYNTestTempTree tree;
  std::string pub, otherPub, lockedPub;

  SignedMedia() {
    tree.File("key", KeyFile(1, "", &pub));
    tree.File("pub", pub);
    tree.File("locked", KeyFile(2, "pw", &lockedPub));
    tree.File("lockedpub", lockedPub);
    KeyFile(3, "", &otherPub);
    tree.File("otherpub", otherPub);
    fs::create_directories(tree.Path("media/1/sub"));
    fs::create_directories(tree.Path("media/2"));
    for (char const* file : {"media/1/sub/a.txt", "media/2/b.txt"}) {
      tree.File(file, file);
      struct utimbuf times = {1600000000, 1600000000};
      utime(tree.Path(file).c_str(), &times);
    }
  }
  ChildResult Generate(std::vector<std::string> extra, std::string const& input = "") {
    std::vector<std::string> args = {"-generate", "-CD1Path", tree.Path("media/1")};
    args.insert(args.end(), extra.begin(), extra.end());
    return RunZyn(args, {}, "", ZYN_EXE_PATH, input);
  }
  ChildResult Check(std::string const& key) {
    std::vector<std::string> args = {"-CD1Path", tree.Path("media/1"),  "-xml", tree.Path("report.xml"),
                                     "-json",    tree.Path("run.jsonl")};
    if (!key.empty()) args.insert(args.end(), {"-pubkey", key});
    return RunZyn(args, {}, "", ZYN_EXE_PATH, "");
  }
};

std::string IdOf(std::string const& publicFile) {
  M::PublicKey key;
  M::ParsePublicKey(publicFile, key);
  return M::KeyIdText(key.keyId);
}

bool HasMinisign() { return std::system("command -v minisign >/dev/null 2>&1") == 0; }

}  // namespace

TEST(SignatureCli, EveryChangeAfterSigningFailsBeforeTheScan) {
  struct Case {
    char const* name;
    std::function<void(SignedMedia&)> change;
    std::string key;  // file under the tree; "base64" for the other key's text
    int status;
    std::string line;  // "@" stands for the key id of pub
    bool scanned;
  } cases[] = {
      {"intact", [](SignedMedia&) {}, "pub", 0, "Signature verified: key @, trusted comment: release 1\tbuild 7", true},
      {"altered file", [](SignedMedia& m) { m.tree.File("media/2/b.txt", "changed"); }, "pub", 1,
       "Signature verified: key @", true},
      {"regenerated without the key", [](SignedMedia& m) { EXPECT_EQ(0, m.Generate({"-quiet"}).status); }, "pub", 1,
       "Signature check failed: no signature file", false},
      {"signature removed", [](SignedMedia& m) { std::remove(m.tree.Path(kSig).c_str()); }, "pub", 1,
       "Signature check failed: no signature file", false},
      {"other key", [](SignedMedia&) {}, "otherpub", 1, "Signature check failed: signed by key @, not by key", false},
      {"trusted comment changed",
       [](SignedMedia& m) {
         std::string text = m.tree.Read(kSig);
         text[text.find("release 1") + 8] = '2';
         m.tree.File(kSig, text);
       },
       "pub", 1, "Signature check failed: the trusted comment of", false},
      {"reference changed", [](SignedMedia& m) { m.tree.File(kRef, m.tree.Read(kRef) + "\n"); }, "pub", 1,
       "MediaContent.xml\" is not the file that key @ signed", false},
      {"malformed", [](SignedMedia& m) { m.tree.File(kSig, "untrusted comment: x\nnot base64\n"); }, "pub", 1,
       "is not a minisign signature file", false},
  };
  for (auto const& c : cases) {
    SignedMedia media;
    ASSERT_EQ(0,
              media.Generate({"-sign", media.tree.Path("key"), "-signcomment", "release 1\tbuild 7", "-quiet"}).status);
    c.change(media);
    ChildResult run = media.Check(media.tree.Path(c.key));
    std::string line = c.line;
    if (line.find('@') != std::string::npos) line.replace(line.find('@'), 1, IdOf(media.pub));
    EXPECT_EQ(c.status, run.status) << c.name << "\n" << run.out;
    EXPECT_NE(std::string::npos, run.out.find(line)) << c.name << "\n" << run.out;
    EXPECT_EQ(c.scanned, run.out.find("[CD1]") != std::string::npos) << c.name;
    if (c.status == 1 && !c.scanned) {
      std::string report = media.tree.Read("report.xml");
      EXPECT_NE(std::string::npos, report.find("<ZirkError Value=")) << c.name << report;
      EXPECT_NE(std::string::npos, report.find(line)) << c.name << report;
      EXPECT_NE(std::string::npos, media.tree.Read("run.jsonl").find("\"kind\":\"signature\"")) << c.name;
    }
  }
}

TEST(SignatureCli, KeysPassphrasesAndOptionsRefused) {
  SignedMedia media;
  // A wrong passphrase ends before the scan: no reference is written.
  ChildResult wrong = media.Generate({"-sign", media.tree.Path("locked")}, "nope\n");
  EXPECT_EQ(2, wrong.status);
  EXPECT_NE(std::string::npos, wrong.out.find("-sign: wrong passphrase for"));
  EXPECT_FALSE(media.tree.Exists(kRef));
  ASSERT_EQ(0, media.Generate({"-sign", media.tree.Path("locked"), "-quiet"}, "pw\n").status);
  // The signed media passes a check without -pubkey exactly as an unsigned one.
  ChildResult plain = media.Check("");
  EXPECT_EQ(0, plain.status) << plain.out;
  EXPECT_EQ(std::string::npos, plain.out.find("minisig"));
  ChildResult base64 = media.Check(media.lockedPub.substr(media.lockedPub.find('\n') + 1, 56));
  EXPECT_EQ(0, base64.status) << base64.out;
  EXPECT_NE(std::string::npos, base64.out.find("trusted comment: timestamp:"));
  EXPECT_NE(std::string::npos, base64.out.find("\tfile:MediaContent.xml\thashed"));

  struct Case {
    std::vector<std::string> args;
    std::string message;
  } cases[] = {
      {{"-CD1Path", media.tree.Path("media/1"), "-pubkey", "RWQnotakey"}, "-pubkey: \"RWQnotakey\" is neither"},
      {{"-CD1Path", media.tree.Path("media/1"), "-pubkey", media.tree.Path("key")}, "is neither a minisign"},
      {{"-CD1Path", media.tree.Path("media/1"), "-pubkey"}, "-pubkey: missing value(s)"},
      {{"-CD1Path", media.tree.Path("media/1"), "-pubkey", ""}, "-pubkey: missing value(s)"},
      {{"-CD1Path", media.tree.Path("media/1"), "-sign", "k"}, "[-sign] must be used with [-generate]"},
      {{"-generate", "-CD1Path", media.tree.Path("media/1"), "-signcomment", "x"}, "[-signcomment] must be used with"},
      {{"-generate", "-CD1Path", media.tree.Path("media/1"), "-pubkey", "p"}, "[-pubkey] cannot be used with"},
      {{"-generate", "-CD1Path", media.tree.Path("media/1"), "-sign", media.tree.Path("pub")}, "not a minisign secret"},
  };
  for (auto const& c : cases) {
    ChildResult run = RunZyn(c.args, {}, "", ZYN_EXE_PATH, "\n");
    EXPECT_EQ(2, run.status) << c.message << "\n" << run.out;
    EXPECT_NE(std::string::npos, run.out.find("\n\nError\n")) << c.message;
    EXPECT_NE(std::string::npos, run.out.find(c.message)) << c.message << "\n" << run.out;
  }
}

TEST(SignatureCli, SignedReferenceIsTheUnsignedOneAndMinisignAgrees) {
  SignedMedia media;
  ASSERT_EQ(0, media.Generate({"-quiet"}).status);
  std::string unsignedBytes = media.tree.Read(kRef);
  ASSERT_EQ(0, media.Generate({"-sign", media.tree.Path("key"), "-quiet"}).status);
  EXPECT_EQ(unsignedBytes, media.tree.Read(kRef));
  if (!HasMinisign()) GTEST_SKIP() << "minisign is not installed: the interoperability checks did not run";

  std::string const dir = media.tree.Root();
  std::string const ref = media.tree.Path(kRef);
  // This tool's signature through minisign.
  EXPECT_EQ(0, std::system(("minisign -Vqm '" + ref + "' -p '" + dir + "/pub'").c_str()));
  // minisign's keys and signatures through this tool: prehashed, legacy, encrypted key.
  ASSERT_EQ(0, std::system(("cd '" + dir + "' && minisign -G -W -p mpub -s msec >/dev/null").c_str()));
  for (char const* mode : {"", "-l"}) {
    std::string sign = "minisign -S " + std::string(mode) + " -s '" + dir + "/msec' -m '" + ref + "' -t 'by minisign'";
    ASSERT_EQ(0, std::system((sign + " >/dev/null").c_str())) << mode;
    ChildResult run = media.Check(dir + "/mpub");
    EXPECT_EQ(0, run.status) << mode << run.out;
    EXPECT_NE(std::string::npos, run.out.find("trusted comment: by minisign")) << mode;
  }
  ASSERT_EQ(0,
            std::system(("cd '" + dir + "' && printf 'pw\\npw\\n' | minisign -G -p epub -s esec >/dev/null").c_str()));
  ASSERT_EQ(0, media.Generate({"-sign", dir + "/esec", "-quiet"}, "pw\n").status);
  EXPECT_EQ(0, std::system(("minisign -Vqm '" + ref + "' -p '" + dir + "/epub'").c_str()));
}

// A physical media moves its check to a copy of the executable: -pubkey goes with it, and
// a failure lands in the default report. /tmp is private to the run, as the copy's name is
// fixed.
TEST(SignatureCli, PubkeySurvivesTheRelaunchOfAPhysicalMedia) {
  std::string pub;
  std::string key = KeyFile(5, "", &pub);
  std::string base64 = pub.substr(pub.find('\n') + 1, 56);
  std::string script =
      "mkdir -p t/1/bin/x && cp \"$0\" t/1/bin/x/ZYNInsMediaCheck && "
      "echo a > t/1/f && printf '%s' '" +
      key + "' > key && \"$0\" -generate -quiet -CD1Path /tmp/t/1 -sign key && mv t/1 mnt && " +
      "mnt/bin/x/ZYNInsMediaCheck -pubkey " + base64 + "; echo \"status $?\"; rm mnt/0data/MediaContent.xml.minisig; " +
      "mnt/bin/x/ZYNInsMediaCheck -pubkey " + base64 + "; echo \"status $?\"; cat MediaCheck_report.xml";
  ChildResult run = RunInPrivateTmp(script);
  if (run.out.find("status") == std::string::npos) GTEST_SKIP() << "no private mount namespace here";
  size_t verified = run.out.find("{Physical Media}");
  ASSERT_NE(std::string::npos, verified) << run.out;
  EXPECT_NE(std::string::npos, run.out.find("Signature verified: key " + IdOf(pub), verified)) << run.out;
  EXPECT_NE(std::string::npos, run.out.find("status 0\n")) << run.out;
  EXPECT_NE(std::string::npos, run.out.find("status 1\n")) << run.out;
  EXPECT_NE(std::string::npos, run.out.find("<ZirkError Value='Signature check failed: no signature file")) << run.out;
}
