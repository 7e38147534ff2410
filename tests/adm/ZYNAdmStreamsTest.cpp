#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "ZYNAdmFileIO.h"
#include "ZYNAdmInputFile.h"
#include "ZYNAdmOutputFile.h"
#include "ZYNAdmOutputStreamBuffer.h"
#include "ZYNAdmReplacingFile.h"
#include "support/ChildProcess.h"
#include "support/ZYNTestTempTree.h"

// A fresh copy of this binary, with the hidden names made known (the preload), plants a
// link and a file at the first two names its file will try, then replaces the file.
static int S_plantedNamesProbe = [] {
  char const* probe = std::getenv("ZYN_TEST_PROBE");
  if (probe == nullptr || std::string(probe) != "planted-names") return 0;
  std::string folder = std::getenv("ZYN_TEST_FOLDER");
  for (int counter : {0, 1}) {
    std::string name = folder + "/.f." + std::to_string(getpid()) + "." + std::to_string(counter) + ".1234~";
    if (counter == 0 ? symlink((folder + "/victim").c_str(), name.c_str())
                     : link((folder + "/planted").c_str(), name.c_str()))
      _exit(3);
  }
  unsigned char data[] = {'n', 'e', 'w'};
  ZYNAdmReplacingFile output(ZYNTestD(folder + "/f"));
  int opened = output.Open();
  int written = output.Write(data, 3);
  std::printf("%d %d %d\n", opened, written, output.Close());
  std::fflush(stdout);
  _exit(0);
}();

TEST(ZYNAdmStreams, FlatFunctionsFailOnNullHandle) {
  long handle = 0;
  char buffer[4];
  unsigned int count = 99;
  EXPECT_EQ(ZYN_E_FAIL, ZYNAdmFSeek(0, 0, 0));
  EXPECT_EQ(ZYN_E_FAIL, ZYNAdmFClose(handle));
  EXPECT_EQ(ZYN_E_FAIL, ZYNAdmFRead(0, buffer, 4, &count));
  EXPECT_EQ(ZYN_E_FAIL, ZYNAdmFWrite(0, buffer, 4, &count));
  EXPECT_EQ(99u, count);
  EXPECT_EQ(ZYN_E_FAIL, ZYNAdmFOpen(DString(L"/nonexistent/zyn/x"), DString(L"rb"), handle));
  EXPECT_EQ(0, handle);
}

TEST(ZYNAdmStreams, SeekOriginOneIsCurrentTwoIsEndAnythingElseIsStart) {
  ZYNTestTempTree tree;
  tree.File("f", "0123456789");
  struct Case {
    int offset;
    int origin;
    char expected;
  } cases[] = {{3, 0, '3'}, {3, 7, '3'}, {3, -1, '3'}, {2, 1, '4'}, {-1, 2, '9'}};
  for (Case const& c : cases) {
    long handle = 0;
    ASSERT_EQ(ZYN_S_OK, ZYNAdmFOpen(tree.DPath("f"), DString(L"rb"), handle));
    ZYNAdmFSeek(handle, 2, 0);  // a current position that differs from start and end
    EXPECT_EQ(ZYN_S_OK, ZYNAdmFSeek(handle, c.offset, c.origin));
    char got = 0;
    unsigned int read = 0;
    EXPECT_EQ(ZYN_S_OK, ZYNAdmFRead(handle, &got, 1, &read));
    EXPECT_EQ(c.expected, got) << "origin " << c.origin;
    EXPECT_EQ(ZYN_S_OK, ZYNAdmFClose(handle));
    EXPECT_EQ(0, handle);
  }
}

TEST(ZYNAdmStreams, InputFileRefusesEmptyRequestsAndReportsEndAsZero) {
  ZYNTestTempTree tree;
  tree.File("f", "abc");
  ZYNAdmInputFile input(tree.DPath("f"));
  unsigned char buffer[8];
  EXPECT_EQ(-1, input.Read(buffer, 4));  // not open
  EXPECT_EQ(0, input.Close());
  ASSERT_EQ(1, input.Open());
  EXPECT_EQ(-1, input.Read(buffer, 0));
  EXPECT_EQ(-1, input.Read(nullptr, 4));
  EXPECT_EQ(3, input.Read(buffer, 8));
  EXPECT_EQ(0, input.Read(buffer, 8));
  EXPECT_EQ(1, input.Close());
  EXPECT_EQ(0, input.Close());
  EXPECT_EQ(1, input.Open());  // reopening after Close starts again
  EXPECT_EQ(3, input.Read(buffer, 8));
  EXPECT_EQ(0, ZYNAdmInputFile(tree.DPath("missing")).Open());
}

// Only a regular file opens; what would block or never end counts as missing.
TEST(ZYNAdmStreams, InputFileOpensOnlyRegularFiles) {
  ZYNTestTempTree tree;
  tree.File("f", "abc");
  tree.Fifo("fifo");
  tree.Dir("dir");
  tree.Link("/dev/urandom", "random");
  tree.Link(tree.Path("f"), "link");
  const struct {
    const char* name;
    int opened;
  } cases[] = {{"f", 1}, {"link", 1}, {"fifo", 0}, {"dir", 0}, {"random", 0}};
  for (auto const& c : cases) EXPECT_EQ(c.opened, ZYNAdmInputFile(tree.DPath(c.name)).Open()) << c.name;
}

// A fault is told from the end of the file (here reading a folder's handle).
TEST(ZYNAdmStreams, ReadFaultFailsInsteadOfReportingTheEnd) {
  ZYNTestTempTree tree;
  long handle = 0;
  ASSERT_EQ(ZYN_S_OK, ZYNAdmFOpen(tree.DPath(""), DString(L"rb"), handle));
  char buffer[8];
  unsigned int count = 99;
  EXPECT_EQ(ZYN_E_FAIL, ZYNAdmFRead(handle, buffer, 8, &count));
  EXPECT_EQ(0u, count);
  ZYNAdmFClose(handle);
}

// The old file stays whole until the new one is; a link is replaced, not followed; a
// character device is written in place.
TEST(ZYNAdmStreams, ReplacingFileSwapsInWholeFilesOnly) {
  unsigned char data[] = {'n', 'e', 'w'};
  const struct {
    const char* name;
    bool link, close;
    const char* content;
  } cases[] = {
      {"replaced", false, true, "new"}, {"link replaced", true, true, "new"}, {"abandoned", false, false, "old"}};
  for (auto const& c : cases) {
    ZYNTestTempTree tree;
    tree.File("target", "old");
    if (c.link) tree.Link(tree.Path("target"), "f");
    if (!c.link) tree.File("f", "old");
    {
      ZYNAdmReplacingFile output(tree.DPath("f"));
      ASSERT_EQ(1, output.Open());
      EXPECT_EQ(3, output.Write(data, 3));
      if (c.close) {
        EXPECT_EQ(1, output.Close()) << c.name;
      }
    }
    EXPECT_EQ(c.content, tree.Read("f")) << c.name;
    EXPECT_EQ("old", tree.Read("target")) << c.name;
    EXPECT_EQ(2, std::distance(std::filesystem::directory_iterator(tree.Root()), {})) << c.name;
  }
  {  // a write cut short (by a file size limit) fails the file, though the rest would pass
    ZYNTestTempTree tree;
    ZYNAdmReplacingFile cut(tree.DPath("f"));
    ASSERT_EQ(1, cut.Open());
    std::vector<unsigned char> big(300000, 'x');
    struct rlimit limit, small;
    getrlimit(RLIMIT_FSIZE, &limit);
    small = {4096, limit.rlim_max};
    auto handler = signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    int put = cut.Write(big.data(), 300000);
    setrlimit(RLIMIT_FSIZE, &limit);
    signal(SIGXFSZ, handler);
    EXPECT_LT(put, 300000);
    EXPECT_EQ(0, cut.Close());
    EXPECT_FALSE(tree.Exists("f"));
  }
  {  // a long file, handed to the device piece by piece while it is written, lands whole
    ZYNTestTempTree tree;
    std::string expected;
    ZYNAdmReplacingFile output(tree.DPath("f"));
    ASSERT_EQ(1, output.Open());
    for (size_t piece : {size_t(1), size_t(700000), size_t(3), size_t(5000000), size_t(65536), size_t(6000000)}) {
      std::string bytes(piece, 'a');
      for (size_t i = 0; i < piece; ++i) bytes[i] = static_cast<char>('a' + (expected.size() + i) % 251);
      expected += bytes;
      EXPECT_EQ(static_cast<int>(piece),
                output.Write(reinterpret_cast<unsigned char*>(&bytes[0]), static_cast<int>(piece)));
    }
    EXPECT_EQ(1, output.Close());
    EXPECT_TRUE(tree.Read("f") == expected);
  }
  {  // a link to a device is replaced too, never written through
    ZYNTestTempTree tree;
    tree.Link("/dev/null", "f");
    ZYNAdmReplacingFile output(tree.DPath("f"));
    ASSERT_EQ(1, output.Open());
    EXPECT_EQ(3, output.Write(data, 3));
    EXPECT_EQ(1, output.Close());
    EXPECT_EQ("new", tree.Read("f"));
  }
  ZYNAdmReplacingFile device(DString(L"/dev/null"));
  ASSERT_EQ(1, device.Open());
  EXPECT_EQ(3, device.Write(data, 3));
  EXPECT_EQ(1, device.Close());
  struct stat info;
  EXPECT_TRUE(lstat("/dev/null", &info) == 0 && S_ISCHR(info.st_mode));
}

// The hidden name is created by this run alone: what stands there already, a link or a
// file, is never written through, and another name is taken.
TEST(ZYNAdmStreams, ReplacingFileNeverWritesThroughAPlantedHiddenName) {
  ZYNTestTempTree tree;
  tree.File("victim", "kept");
  tree.File("planted", "kept");
  std::string options = std::getenv("ASAN_OPTIONS") != nullptr ? std::getenv("ASAN_OPTIONS") : "";
  ChildResult child = RunChild({SelfExecutable()}, {"ZYN_TEST_PROBE=planted-names", "ZYN_TEST_FOLDER=" + tree.Root(),
                                                    std::string("LD_PRELOAD=") + ZYN_HIDDEN_NAMES_PRELOAD,
                                                    "ASAN_OPTIONS=" + options + ":verify_asan_link_order=0"});
  ASSERT_EQ(0, child.status) << child.err;
  EXPECT_EQ("1 3 1\n", child.out);
  EXPECT_EQ("new", tree.Read("f"));
  EXPECT_EQ("kept", tree.Read("victim"));
  EXPECT_EQ("kept", tree.Read("planted"));
  EXPECT_EQ(5, std::distance(std::filesystem::directory_iterator(tree.Root()), {}));  // the two planted names stay
}

TEST(ZYNAdmStreams, OutputFileEmptiesOnOpenAndDestructorKeepsWrittenBytes) {
  ZYNTestTempTree tree;
  tree.File("f", "old content");
  unsigned char data[64] = {'n', 'e', 'w'};
  {
    ZYNAdmOutputFile output(tree.DPath("f"));
    EXPECT_EQ(-1, output.Write(data, 3));  // not open
    ASSERT_EQ(1, output.Open());
    EXPECT_EQ(3, output.Write(data, 3));
  }
  EXPECT_EQ("new", tree.Read("f"));
  ZYNAdmOutputFile full(DString(L"/dev/full"));
  ASSERT_EQ(1, full.Open());
  EXPECT_EQ(64, full.Write(data, 64));  // buffered: the fault shows at the flush
  EXPECT_EQ(0, full.Close());
}

TEST(ZYNAdmStreams, StreamBufferCollectsChunksAndRefusesEmptyWrites) {
  ZYNAdmOutputStreamBuffer buffer;
  unsigned char* data = reinterpret_cast<unsigned char*>(&buffer);  // sentinel, must stay
  int size = -7;
  EXPECT_EQ(0, buffer.GetBuffer(data, size));
  EXPECT_EQ(reinterpret_cast<unsigned char*>(&buffer), data);
  EXPECT_EQ(-7, size);

  unsigned char ab[] = {'a', 'b'};
  unsigned char c[] = {'c'};
  EXPECT_EQ(0, buffer.Write(ab, 0));
  EXPECT_EQ(0, buffer.Write(nullptr, 2));
  EXPECT_EQ(1, buffer.Open());
  EXPECT_EQ(2, buffer.Write(ab, 2));
  EXPECT_EQ(1, buffer.Close());
  EXPECT_EQ(1, buffer.Open());  // a second run keeps the chunks of the first
  EXPECT_EQ(1, buffer.Write(c, 1));

  unsigned char* first = nullptr;
  unsigned char* second = nullptr;
  ASSERT_EQ(1, buffer.GetBuffer(first, size));
  ASSERT_EQ(3, size);
  ASSERT_EQ(1, buffer.GetBuffer(second, size));
  EXPECT_NE(first, second);
  EXPECT_EQ(0, std::memcmp(first, "abc", 3));
  EXPECT_EQ(0, std::memcmp(second, "abc", 3));
  std::free(first);
  std::free(second);
}

// A set replaces its files only together, once every one is written: a file that fails
// leaves all the old ones; a commit puts all the new ones, and no name is left over.
TEST(ZYNAdmStreams, ReplacingFileSetCommitsAllOrNone) {
  unsigned char data[] = {'n', 'e', 'w'};
  for (bool whole : {false, true}) {
    ZYNTestTempTree tree;
    tree.Dir("a");
    tree.Dir("b");
    tree.File("a/f", "old");
    tree.File("b/g", "old");
    {
      ZYNAdmReplacingFileSet set;
      ZYNAdmReplacingFile& first = set.Add(tree.DPath("a/f"), ZYNTestD(tree.Root()));
      ZYNAdmReplacingFile& second = set.Add(tree.DPath("b/g"));
      set.SetJournal(tree.DPath(".journal"));  // gone with the commit, as are the names
      ASSERT_EQ(1, first.Open());
      ASSERT_EQ(1, second.Open());
      EXPECT_EQ(3, first.Write(data, 3));
      EXPECT_EQ(1, first.Close());
      EXPECT_EQ("old", tree.Read("a/f"));  // written, not yet in place
      if (whole) {
        EXPECT_EQ(3, second.Write(data, 3));
        EXPECT_EQ(1, second.Close());
        EXPECT_EQ(1, set.Commit());
      }
    }
    std::string expected = whole ? "new" : "old";
    EXPECT_EQ(expected, tree.Read("a/f"));
    EXPECT_EQ(expected, tree.Read("b/g"));
    for (auto const& folder : {"", "a", "b"}) {
      EXPECT_EQ(*folder ? 1 : 2, std::distance(std::filesystem::directory_iterator(tree.Path(folder)), {})) << folder;
    }
  }
}
