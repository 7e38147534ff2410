// The walk as a user meets it when its files are digested on every core, and where the
// walk must not trust a name or a read: the real program on media made here.
#include <fcntl.h>
#include <ftw.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <memory>
#include <string>
#include <vector>

#include "ZYNInsDigestPool.h"
#include "support/ChildProcess.h"
#include "support/ZYNTestTempTree.h"

namespace {

struct Outcome {
  int status;
  std::string out;
  std::string files;  // the references and the report
};

bool operator==(Outcome const& a, Outcome const& b) {
  return a.status == b.status && a.out == b.out && a.files == b.files;
}

std::ostream& operator<<(std::ostream& os, Outcome const& o) { return os << o.status << "\n" << o.out << o.files; }

void SetTime(std::string const& path, long long seconds) {
  struct utimbuf times = {static_cast<time_t>(seconds), static_cast<time_t>(seconds)};
  utime(path.c_str(), &times);
}

// A media of two volumes with enough files in enough folders, some of them nested, that
// the workers list and digest well ahead of the walk; one wide folder gives the walk
// listings to hand on mid-way and the volume a list of files long enough to be linked
// into its element on every core.
void MakeMedia(ZYNTestTempTree const& tree, std::string const& media) {
  for (std::string dir : {"", "/1", "/2", "/1/0data", "/2/0data", "/1/wide"}) tree.Dir(media + dir);
  for (int file = 0; file < 3800; ++file) {
    SetTime(tree.File(media + "/1/wide/w" + std::to_string(file), std::to_string(file)), 1600000000);
  }
  for (int folder = 0; folder < 12; ++folder) {
    std::string top = media + (folder < 9 ? "/1/d" : "/2/d") + std::to_string(folder);
    for (std::string dir : {top, top + "/s", top + "/s/t", top + "/u"}) {
      tree.Dir(dir);
      int files = dir == top ? 25 : 4;
      for (int file = 0; file < files; ++file) {
        std::string content(static_cast<size_t>(file * 97 + folder), static_cast<char>('a' + file % 26));
        SetTime(tree.File(dir + "/f" + std::to_string(file), content), 1600000000);
      }
    }
  }
}

// Drops the files below `path` from memory, as on a device read cold; false where the
// file system keeps them there anyway (tmpfs).
bool Evict(std::string const& path) {
  static bool cold;
  cold = false;
  nftw(
      path.c_str(),
      [](char const* file, struct stat const* status, int, struct FTW*) {
        if (!S_ISREG(status->st_mode) || status->st_size == 0) return 0;
        int fd = open(file, O_RDONLY);
        fdatasync(fd);
        posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
        // Asked without a read, which would bring the file back.
        void* map = mmap(nullptr, 1, PROT_READ, MAP_SHARED, fd, 0);
        unsigned char resident = 1;
        if (map != MAP_FAILED && mincore(map, 1, &resident) == 0 && (resident & 1) == 0) cold = true;
        if (map != MAP_FAILED) munmap(map, 1);
        close(fd);
        return 0;
      },
      16, FTW_PHYS);
  return cold;
}

// How a run is made to digest: the walk's thread alone, four workers even on one
// processor, or every core with its files out of memory, so that readers join.
enum class Threads { One, Four, Cold };

// One run on the copy `media` of the media, with its paths made the same for every copy.
Outcome RunOn(ZYNTestTempTree const& tree, std::string const& media, std::vector<std::string> args, Threads threads) {
  std::string root = tree.Path(media);
  args.insert(args.end(), {"-CD1Path", root + "/1", "-xml", root + ".report.xml"});
  std::vector<std::string> env = {threads == Threads::One ? "QRTSysMultiThreading=FALSE" : "QRTSysMultiThreading",
                                  threads == Threads::Four ? "QRTSysThreads=4" : "QRTSysThreads"};
  if (threads == Threads::Cold) Evict(root);
  ChildResult r = RunZyn(args, env);
  Outcome outcome{r.status, r.out,
                  tree.Read(media + "/1/0data/MediaContent.xml") + tree.Read(media + "/2/0data/MediaContent.xml") +
                      tree.Read(media + ".report.xml")};
  for (std::string* text : {&outcome.out, &outcome.files}) {
    for (size_t at; (at = text->find(root)) != std::string::npos;) text->replace(at, root.size(), "{M}");
  }
  return outcome;
}

}  // namespace

TEST(ZYNInsDigestPool, OneThreadAndEveryCoreGiveTheSameRun) {
  ZYNTestTempTree tree;
  MakeMedia(tree, "one");
  MakeMedia(tree, "all");
  MakeMedia(tree, "cold");
  // Each step is done to every copy, then each is run: one thread against every core.
  struct Step {
    char const* what;
    std::vector<std::string> args;
    int status;
    void (*damage)(ZYNTestTempTree const&, std::string const&);
  } const steps[] = {
      {"generate", {"-generate"}, 0, nullptr},
      {"intact check", {}, 0, nullptr},
      {"damaged check",
       {},
       1,
       [](ZYNTestTempTree const& t, std::string const& m) {
         t.File(m + "/1/d3/f7", "altered");
         SetTime(t.Path(m + "/1/d3/f7"), 1600000000);
         unlink(t.Path(m + "/1/d5/f1").c_str());
         // Its time is shown: set, so that the copies made a second apart show the same.
         SetTime(t.File(m + "/1/d5/new", "unexpected"), 1600000000);
         SetTime(t.Path(m + "/1/d0/f2"), 1600003600);
         SetTime(t.Path(m + "/2/d10/f4"), 1600000030);
         t.Link("/nonexistent", m + "/1/d8/dangling");
         t.Link("/nonexistent", m + "/1/d4/s/t/dangling");
       }},
      {"generate stopped", {"-generate"}, 2, nullptr},
      {"check of part", {"-cds", "2"}, 1, nullptr},
      {"check of volume 1", {"-cds", "1"}, 1, nullptr},
      // Volume 1, read ahead while the reference is read, is dropped when there is none.
      {"reference gone",
       {},
       2,
       [](ZYNTestTempTree const& t, std::string const& m) { unlink(t.Path(m + "/1/0data/MediaContent.xml").c_str()); }},
  };
  for (Step const& step : steps) {
    if (step.damage != nullptr) {
      for (char const* copy : {"one", "all", "cold"}) step.damage(tree, copy);
    }
    Outcome one = RunOn(tree, "one", step.args, Threads::One);
    EXPECT_EQ(one, RunOn(tree, "all", step.args, Threads::Four)) << step.what;
    EXPECT_EQ(one, RunOn(tree, "cold", step.args, Threads::Cold)) << step.what;
    EXPECT_EQ(step.status, one.status) << step.what << one;
  }
}

// Where the walk would loop, read another file than the one listed, or take a failed read
// for the end of a file.
TEST(ZYNInsDigestPool, WalkNeitherLoopsNorMisreads) {
  struct Case {
    char const* what;
    bool generate;
    std::string expected;  // a part of the output or of the report
    int status;
  } const cases[] = {
      {"loop", true, "Too many levels of symbolic links\n", 2},
      {"loop", false, "Too many levels of symbolic links&#xA;", 1},
      {"backslash", false, "&quot;/a\\b&quot; File's content corrupted", 1},
      {"read error", true, "\n\"/data\" Access error\n", 2},
      {"read error", false, "&quot;/data&quot; Access error&#xA;", 1},
  };
  for (Case const& c : cases) {
    ZYNTestTempTree tree;
    std::string what = c.what;
    for (std::string dir : {"media", "media/1", "media/1/a", "media/1/in"}) tree.Dir(dir);
    tree.File("media/1/a/b", "slash");
    tree.File("media/1/a\\b", "backslash");
    tree.File("media/1/data", "data");
    std::string cd1 = tree.Path("media/1");
    if (!c.generate) {
      ASSERT_EQ(0, RunZyn({"-generate", "-CD1Path", cd1}).status);
    }
    if (what == "loop") {
      tree.Link("..", "media/1/in/again");
      tree.Link(".", "media/1/in/twice");
    }
    if (what == "backslash") tree.File("media/1/a\\b", "changed");

    std::vector<std::string> args = {"-CD1Path", cd1, "-xml", tree.Path("report.xml")};
    if (c.generate) args.insert(args.begin(), "-generate");
    ChildResult r;
    if (what == "read error") {
      if (access("/usr/bin/strace", X_OK) != 0) GTEST_SKIP() << "strace is needed to fail a read";
      args.insert(args.begin(), {"/usr/bin/strace", "-f", "-qq", "-o", "/dev/null", "-P", tree.Path("media/1/data"),
                                 "-e", "trace=read", "-e", "inject=read:error=EIO", ZYN_EXE_PATH});
      // Leak detection can't work under a tracer.
      r = RunChild(args, {"LANG=C", "ASAN_OPTIONS=detect_leaks=0"});
    } else {
      r = RunZyn(args);
    }
    std::string text = r.out + tree.Read("report.xml");
    EXPECT_NE(std::string::npos, text.find(c.expected)) << what << "\n" << text;
    EXPECT_EQ(c.status, r.status) << what;
    if (c.generate) {
      EXPECT_FALSE(tree.Exists("media/1/0data/MediaContent.xml")) << what;
    }
  }
}

// Each thread that digests opens the folder itself and keeps it for its next files only:
// with one thread as with every core, a low limit of open files holds.
TEST(ZYNInsDigestPool, ALowLimitOfOpenFilesHolds) {
  ZYNTestTempTree tree;
  for (std::string dir : {"m", "m/1"}) tree.Dir(dir);
  for (int folder = 0; folder < 60; ++folder) {
    std::string dir = "m/1/f" + std::to_string(folder);
    tree.Dir(dir);
    for (std::string file : {"/a", "/b", "/c"}) SetTime(tree.File(dir + file, dir + file), 1600000000);
  }
  std::string cd1 = tree.Path("m/1"), ref = "m/1/0data/MediaContent.xml";
  ASSERT_EQ(0, RunZyn({"-generate", "-CD1Path", cd1, "-xml", tree.Path("r.xml")}).status);
  std::string expected = tree.Read(ref);
  for (bool oneThread : {true, false}) {
    unlink(tree.Path(ref).c_str());
    ChildResult r = RunZyn({"-c", "ulimit -n 40 && exec \"$0\" -generate -CD1Path \"$1\" -xml \"$2\"", ZYN_EXE_PATH,
                            cd1, tree.Path("r.xml")},
                           {oneThread ? "QRTSysMultiThreading=FALSE" : "QRTSysMultiThreading"}, "", "/bin/sh");
    EXPECT_EQ(0, r.status) << oneThread << r.out;
    EXPECT_EQ(expected, tree.Read(ref)) << oneThread;
  }
}

// A thread keeps the folder it digests open for the next file: a folder made where
// another lay in memory is opened anew, and the file read is its own.
TEST(ZYNInsDigestPool, AFolderInAnotherFoldersPlaceIsOpenedAnew) {
  ZYNTestTempTree tree;
  tree.Dir("a");
  tree.Dir("b");
  tree.File("a/f", "in a");
  tree.File("b/f", "in b");
  ZYNInsDigestPool pool;
  std::vector<std::string> hashes;
  for (int i = 0; i < 40; ++i) {
    std::unique_ptr<ZYNInsDigestFolder> folder(new ZYNInsDigestFolder());
    folder->narrowPath = tree.Path(i % 2 == 0 ? "a" : "b");
    ZYNInsDigestJob job;
    job.folder = folder.get();
    job.name = "f";
    pool.Add(&job, 1);
    hashes.push_back(ZYNTestS(pool.Take(job).hash));
  }
  ASSERT_FALSE(hashes[0].empty());
  EXPECT_NE(hashes[0], hashes[1]);
  for (size_t i = 2; i < hashes.size(); ++i) EXPECT_EQ(hashes[i % 2], hashes[i]) << i;
}

// Threads are started by the processors the run may use: on one processor, as with
// QRTSysMultiThreading=FALSE, the walk's thread digests alone; QRTSysThreads adds workers.
TEST(ZYNInsDigestPool, OneProcessorStartsNoWorker) {
  if (access("/usr/bin/strace", X_OK) != 0 || access("/usr/bin/taskset", X_OK) != 0) GTEST_SKIP() << "no strace";
  ZYNTestTempTree tree;
  MakeMedia(tree, "m");
  auto clones = [&](std::vector<std::string> prefix, std::string const& env, bool cold = false) {
    if (cold && !Evict(tree.Path("m"))) return size_t(0);
    std::string log = tree.Path("clones.log");
    std::vector<std::string> args = {"/usr/bin/strace",
                                     "-f",
                                     "-qq",
                                     "-o",
                                     log,
                                     "-e",
                                     "trace=clone,clone3",
                                     ZYN_EXE_PATH,
                                     "-CD1Path",
                                     tree.Path("m/1"),
                                     "-xml",
                                     tree.Path("r.xml")};
    args.insert(args.begin(), prefix.begin(), prefix.end());
    ChildResult r = RunChild(args, {"LANG=C", "ASAN_OPTIONS=detect_leaks=0", "QRTSysThreads", env});
    EXPECT_EQ(0, r.status) << r.out << r.err;
    std::string text = tree.Read("clones.log");
    // A call another thread's output cut in two shows as "clone3(... <unfinished ...>" and
    // "<... clone3 resumed>": only its start is counted.
    size_t count = 0;
    for (char const* call : {"clone(", "clone3("}) {
      for (size_t at = 0; (at = text.find(call, at)) != std::string::npos; ++at) ++count;
    }
    return count;
  };
  ASSERT_EQ(0, RunZyn({"-generate", "-CD1Path", tree.Path("m/1")}).status);
  size_t alone = clones({}, "QRTSysMultiThreading=FALSE");
  EXPECT_EQ(alone, clones({"/usr/bin/taskset", "-c", "0"}, "QRTSysMultiThreading"));
  size_t three = clones({}, "QRTSysThreads=3");
  EXPECT_LT(alone, three);
  // Files out of memory bring more readers, beyond the processors but never beyond a
  // count the user set; tmpfs, or one processor, can't show it.
  size_t threeCold = clones({}, "QRTSysThreads=3", true);
  if (threeCold != 0) {
    EXPECT_EQ(three, threeCold);
  }
  cpu_set_t usable;
  if (sched_getaffinity(0, sizeof usable, &usable) != 0 || CPU_COUNT(&usable) < 2) return;
  size_t warm = clones({}, "QRTSysThreads");
  size_t cold = clones({}, "QRTSysThreads", true);
  if (cold != 0) {
    EXPECT_LT(warm, cold);
  }
}
