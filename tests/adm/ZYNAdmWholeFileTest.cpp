#include <gtest/gtest.h>

#include <cerrno>
#include <random>

#include "ZYNAdmWholeFile.h"
#include "support/ZYNTestTempTree.h"

// Long files are read by ranges on several threads: every byte lands in its place, ranges
// cut anywhere, and what is not a whole regular file is refused as before.
TEST(ZYNAdmWholeFile, ReadsEveryByteWhateverTheLength) {
  ZYNTestTempTree tree;
  std::mt19937 random(11);
  for (std::size_t size : {std::size_t(0), std::size_t(1), std::size_t(4097), std::size_t(8 << 20) - 1,
                           std::size_t(8 << 20) + 12345, std::size_t(13 << 20) + 1}) {
    std::string content(size, '\0');
    for (char& c : content) c = static_cast<char>(random());
    std::string path = tree.File("f" + std::to_string(size), content);
    std::string bytes = "left over";
    struct stat status;
    ASSERT_EQ(ZYNAdmReadWholeFile(ZYNTestD(path), static_cast<std::size_t>(-1), bytes, status), 0) << size;
    EXPECT_TRUE(bytes == content) << size;
    EXPECT_EQ(static_cast<std::size_t>(status.st_size), size);
  }
}

TEST(ZYNAdmWholeFile, RefusesWhatIsNotAWholeRegularFile) {
  ZYNTestTempTree tree;
  std::string big = tree.File("big", std::string(9 << 20, 'x'));
  struct Case {
    std::string path;
    std::size_t limit;
    int expected;
  } const cases[] = {
      {tree.Dir("folder"), 100, EINVAL},
      {tree.Path("missing"), 100, ENOENT},
      {big, (9 << 20) - 1, EFBIG},
  };
  for (Case const& c : cases) {
    std::string bytes = "left over";
    struct stat status;
    EXPECT_EQ(ZYNAdmReadWholeFile(ZYNTestD(c.path), c.limit, bytes, status), c.expected) << c.path;
    if (c.expected != ENOENT) {
      EXPECT_TRUE(bytes.empty()) << c.path;  // nothing half read is kept
    }
  }
}
