#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "ZYNAdmFileIO.h"
#include "ZYNAdmInputFile.h"
#include "ZYNAdmOutputFile.h"
#include "ZYNAdmOutputStreamBuffer.h"
#include "ZYNAdmReplacingFile.h"
#include "ZYNAdmSetJournal.h"
#include "support/ZYNTestTempTree.h"

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
  ZYNAdmReplacingFile device(DString(L"/dev/null"));
  ASSERT_EQ(1, device.Open());
  EXPECT_EQ(3, device.Write(data, 3));
  EXPECT_EQ(1, device.Close());
  struct stat info;
  EXPECT_TRUE(lstat("/dev/null", &info) == 0 && S_ISCHR(info.st_mode));
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

// A set of three files left by a commit killed after `swapped` of its swaps: the new
// files swapped in, the others under their hidden names (the last one's beside its path,
// the others' beside the journal), and the journal as Commit writes it. `lost`: the
// member whose new file is gone; `dropped`: one whose old file was already removed.
struct SSetOnDisk {
  ZYNTestTempTree tree;
  std::vector<ZYNAdmSetJournal::Member> members;
  std::vector<std::string> finals;
  std::string journal;
  int held = -1;  // the journal, locked as a run still swapping holds it
  ~SSetOnDisk() {
    if (held >= 0) close(held);
  }
  SSetOnDisk(int swapped, int lost = -1, int dropped = -1) {
    journal = tree.Path(".J.journal");
    for (int i = 0; i < 3; ++i) {
      std::string n = std::to_string(i), folder = std::string(1, static_cast<char>('a' + i));
      tree.Dir(folder);
      ZYNAdmSetJournal::Member member;
      member.final = tree.Path(folder + "/f");
      member.hidden = i == 2 ? tree.Path(folder + "/.f." + n + ".1~") : tree.Path(".f." + n + ".1~");
      std::string const& atNew = i < swapped ? member.final : member.hidden;
      std::string const& atOld = i < swapped ? member.hidden : member.final;
      std::ofstream(atNew) << "new" << n;
      if (i != dropped) std::ofstream(atOld) << "old" << n;
      struct stat info;
      lstat(atNew.c_str(), &info);
      member.device = info.st_dev;
      member.inode = info.st_ino;
      if (i == lost) unlink(atNew.c_str());
      members.push_back(member);
      finals.push_back(member.final);
    }
    std::ofstream(journal) << ZYNAdmSetJournal::Format(members);
    chmod(journal.c_str(), 0600);
  }
  std::string Contents() const {
    std::string all;
    for (auto const& member : members) all += tree.Read(member.final.substr(tree.Root().size() + 1)) + " ";
    return all;
  }
  long Names() const {  // in the folders of the set, the journal and hidden names included
    long count = std::distance(std::filesystem::directory_iterator(tree.Root()), {});
    for (auto const& folder : {"a", "b", "c"})
      count += std::distance(std::filesystem::directory_iterator(tree.Path(folder)), {});
    return count;
  }
};

// Every new file still there: the set goes forward, at any stage of its swaps; one gone:
// back. Either way nothing is left beside the set.
TEST(ZYNAdmStreams, SetJournalReplayedForwardWhereEveryNewFileIsLeftElseBack) {
  const struct {
    int swapped, lost, dropped;
    int outcome;
    const char* contents;
  } cases[] = {
      {0, -1, -1, ZYNAdmSetJournal::Forward, "new0 new1 new2 "},
      {1, -1, -1, ZYNAdmSetJournal::Forward, "new0 new1 new2 "},
      {2, -1, -1, ZYNAdmSetJournal::Forward, "new0 new1 new2 "},
      {3, -1, -1, ZYNAdmSetJournal::Forward, "new0 new1 new2 "},
      {3, -1, 0, ZYNAdmSetJournal::Forward, "new0 new1 new2 "},
      {0, 1, -1, ZYNAdmSetJournal::Back, "old0 old1 old2 "},
      {1, 2, -1, ZYNAdmSetJournal::Back, "old0 old1 old2 "},
      {2, 0, -1, ZYNAdmSetJournal::Back, "old0 old1 old2 "},
      {3, 2, -1, ZYNAdmSetJournal::Back, "old0 old1 old2 "},
  };
  for (auto const& c : cases) {
    SSetOnDisk set(c.swapped, c.lost, c.dropped);
    std::string name = "after " + std::to_string(c.swapped) + ", lost " + std::to_string(c.lost);
    EXPECT_EQ(c.outcome, ZYNAdmSetJournal::Recover(set.journal, set.finals)) << name;
    EXPECT_EQ(c.contents, set.Contents()) << name;
    EXPECT_EQ(6, set.Names()) << name;
  }
}

// A journal anyone but us could have written, or naming paths outside the set, changes
// nothing: the files stay as they are, and so does the journal.
TEST(ZYNAdmStreams, SetJournalNotOursOrNamingOtherPathsIsLeftAlone) {
  const struct {
    const char* name;
    std::function<void(SSetOnDisk&)> spoil;
  } cases[] = {
      {"link",
       [](SSetOnDisk& s) {
         rename(s.journal.c_str(), s.tree.Path("real").c_str()), s.tree.Link("real", ".J.journal");
       }},
      {"other owner", [](SSetOnDisk& s) { chown(s.journal.c_str(), 65534, 65534); }},
      {"locked", [](SSetOnDisk& s) { flock(s.held = open(s.journal.c_str(), O_RDONLY), LOCK_EX); }},
      {"group-writable", [](SSetOnDisk& s) { chmod(s.journal.c_str(), 0620); }},
      {"final outside", [](SSetOnDisk& s) { s.finals.pop_back(); }},
      {"hidden elsewhere",
       [](SSetOnDisk& s) {
         s.members[1].hidden = s.tree.Path("a/.f.1.1~");
         std::ofstream(s.journal) << ZYNAdmSetJournal::Format(s.members);
       }},
      {"hidden of another name",
       [](SSetOnDisk& s) {
         s.members[1].hidden = s.tree.Path(".g.1.1~");
         std::ofstream(s.journal) << ZYNAdmSetJournal::Format(s.members);
       }},
      {"truncated", [](SSetOnDisk& s) { truncate(s.journal.c_str(), std::filesystem::file_size(s.journal) - 4); }},
      {"garbage", [](SSetOnDisk& s) { std::ofstream(s.journal) << "replacing-set 1\n1\n\x01\n"; }},
  };
  for (auto const& c : cases) {
    SSetOnDisk set(1);
    c.spoil(set);
    if (std::string(c.name) == "other owner" && geteuid() != 0) continue;
    EXPECT_EQ(ZYNAdmSetJournal::Ignored, ZYNAdmSetJournal::Recover(set.journal, set.finals)) << c.name;
    EXPECT_EQ("new0 old1 old2 ", set.Contents()) << c.name;
    EXPECT_TRUE(set.tree.Exists(".J.journal")) << c.name;
  }
}
