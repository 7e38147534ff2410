// The reference read once per run: a file rewritten in place is read again whatever
// field of its identity moved, and a seal's verdict stays with the tree it was found on.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlHash.h"
#include "ZYNInsReferenceCache.h"
#include "support/ZYNTestTempTree.h"

namespace {

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
  ZYNInsReferenceCache::Forget();
}

}  // namespace
