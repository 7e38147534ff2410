// The reference read once per run: a file rewritten in place is read again whatever
// field of its identity moved, and a seal's verdict stays with the tree it was found on.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "ZYNAdmOutputFile.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlHash.h"
#include "ZYNAdmXmlParser.h"
#include "ZYNInsReferenceCache.h"
#include "support/ChildProcess.h"
#include "support/ZYNTestTempTree.h"

namespace {

std::string ValueOf(std::string const& path) {
  ZYNAdmXmlElement root;
  if (ZYNInsReferenceCache::Parse(ZYNTestD(path), root) != 1) return "unread";
  return ZYNTestS(root.GetAttributeValue(DString(L"v")));
}

void Put(std::string const& path, char const* text) { std::ofstream(path, std::ios::binary) << text; }

bool SameBut(struct stat const& a, struct stat const& b, char field) {
  bool ctime = a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
  bool mtime = a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
  return ctime && (field == 'd') == (a.st_dev != b.st_dev) && (field == 'i') == (a.st_ino != b.st_ino) &&
         (field == 'z') == (a.st_size != b.st_size) && (field == 's' || field == 'n') == !mtime &&
         (field != 's' || a.st_mtim.tv_nsec == b.st_mtim.tv_nsec) &&
         (field != 'n' || a.st_mtim.tv_sec == b.st_mtim.tv_sec);
}

// In a mount namespace of its own: each field of the key moved alone, the others kept,
// the change time included (made in the same tick of the coarse clock, tried again until
// it is). Other tmpfs and ramfs mounts give the second device and the coarse clock; a
// file bound over the name gives another inode.
int ReferenceFieldsProbe() {
  char const* probe = std::getenv("ZYN_TEST_PROBE");
  if (probe == nullptr || std::string(probe) != "reference-fields") return 0;
  std::string folder = std::getenv("ZYN_TEST_FOLDER");
  std::string ref = folder + "/a/ref", other = folder + "/b/ref";
  for (char field : {'d', 'i', 'z', 's', 'n'}) {
    std::string got = "unmet";
    for (int attempt = 0; attempt < 200 && got == "unmet"; ++attempt) {
      ZYNInsReferenceCache::Forget();
      char const* type = field == 'd' ? "tmpfs" : "ramfs";
      if (mount("zyn", (folder + "/a").c_str(), type, 0, nullptr) != 0 ||
          mount("zyn", (folder + "/b").c_str(), type, 0, nullptr) != 0)
        _exit(3);
      if (field == 'i') other = folder + "/a/other";
      Put(ref, "<M v=\"1\"/>");
      Put(other, "<M v=\"2\"/>");
      struct timespec times[2] = {{0, UTIME_OMIT}, {1700000000, 5}};
      utimensat(AT_FDCWD, ref.c_str(), times, 0);
      utimensat(AT_FDCWD, other.c_str(), times, 0);
      struct stat before, after;
      stat(ref.c_str(), &before);
      if (ValueOf(ref) != "1") _exit(4);
      if (field == 'd' || field == 'i') {
        mount(other.c_str(), ref.c_str(), nullptr, MS_BIND, nullptr);
      } else {
        Put(ref, field == 'z' ? "<M v=\"22\"/>" : "<M v=\"2\"/>");
        times[1].tv_sec += field == 's';
        times[1].tv_nsec += field == 'n';
        utimensat(AT_FDCWD, ref.c_str(), times, 0);
      }
      stat(ref.c_str(), &after);
      if (SameBut(before, after, field)) got = ValueOf(ref);
      umount2(ref.c_str(), MNT_DETACH);
      umount2((folder + "/a").c_str(), MNT_DETACH);
      umount2((folder + "/b").c_str(), MNT_DETACH);
    }
    std::printf("%c %s\n", field, got.c_str());
  }
  std::fflush(stdout);
  _exit(0);
}
int S_referenceFieldsProbe = ReferenceFieldsProbe();

std::string ValueRead(ZYNTestTempTree const& tree) {
  ZYNAdmXmlElement root;
  EXPECT_EQ(1, ZYNInsReferenceCache::Parse(tree.DPath("ref"), root));
  return ZYNTestS(root.GetAttributeValue(DString(L"v")));
}

// Another disc in the same drive keeps the inode; here only the size, or only the
// change time (mtime put back, same size), tells the new file from the old.
TEST(ZYNInsReferenceCache, FileRewrittenInPlaceIsReadAgain) {
  for (std::string next : {"<M v=\"22\"/>", "<M v=\"2\"/>"}) {
    ZYNTestTempTree tree;
    ZYNInsReferenceCache::Forget();
    tree.File("ref", "<M v=\"1\"/>");
    struct stat before;
    stat(tree.Path("ref").c_str(), &before);
    EXPECT_EQ("1", ValueRead(tree));
    std::ofstream(tree.Path("ref"), std::ios::binary | std::ios::in) << next;
    struct timespec times[2] = {before.st_atim, before.st_mtim};
    utimensat(AT_FDCWD, tree.Path("ref").c_str(), times, 0);
    struct stat after;
    stat(tree.Path("ref").c_str(), &after);
    ASSERT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(next.substr(6, next.size() - 9), ValueRead(tree)) << next;
  }
}

// Device (a second tmpfs), inode (another file), size, and the seconds or nanoseconds of
// the modification time: each alone tells another file from the one read.
TEST(ZYNInsReferenceCache, EveryFieldOfTheKeyAloneTellsAnotherFile) {
  if (RunInPrivateTmp("true").status != 0) GTEST_SKIP() << "no private mount namespace here";
  ZYNTestTempTree tree;
  tree.Dir("a");
  tree.Dir("b");
  ChildResult child = RunChild({"/usr/bin/unshare", "-m", "--propagation", "private", SelfExecutable()},
                               {"ZYN_TEST_PROBE=reference-fields", "ZYN_TEST_FOLDER=" + tree.Root()});
  EXPECT_EQ(0, child.status) << child.err;
  EXPECT_EQ("d 2\ni 2\nz 22\ns 2\nn 2\n", child.out);
}

// The verdict on a tree held is kept; that on any other tree is neither taken from it nor
// left in its place.
TEST(ZYNInsReferenceCache, SealVerdictIsKeptForTheTreeHeldOnly) {
  ZYNTestTempTree tree;
  ZYNInsReferenceCache::Forget();
  tree.File("ref", "<M v=\"1\"/>");
  ZYNAdmXmlElement held, other(DString(L"M"));
  ASSERT_EQ(1, ZYNInsReferenceCache::Parse(tree.DPath("ref"), held));
  EXPECT_EQ(ZYNAdmSealMissing, ZYNInsReferenceCache::Check(held));
  ASSERT_EQ(1, ZYNAdmXmlHash::Hash(other));
  EXPECT_EQ(ZYNAdmSealRight, ZYNInsReferenceCache::Check(other));
  EXPECT_EQ(ZYNAdmSealMissing, ZYNInsReferenceCache::Check(held));
  {  // nor is it kept for the next file read
    ZYNAdmOutputFile sealed(tree.DPath("ref"));
    ASSERT_EQ(1, ZYNAdmXmlParser::GetXml(other, sealed));
  }
  ASSERT_EQ(1, ZYNInsReferenceCache::Parse(tree.DPath("ref"), held));
  EXPECT_EQ(ZYNAdmSealRight, ZYNInsReferenceCache::Check(held));
  ZYNInsReferenceCache::Forget();
}

}  // namespace
