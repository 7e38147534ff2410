// A reference swapped while the check reads it: the file first read holds a forged list
// (the damaged media's digests under the true seal's value); as soon as it is closed, a
// racer renames the true reference over it. The tree compared must be the one whose seal
// was tested, so the damaged media never passes.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <utime.h>

#include <filesystem>
#include <thread>

#include "support/ChildProcess.h"
#include "support/ZYNTestTempTree.h"

namespace fs = std::filesystem;

namespace {

std::string SealOf(std::string const& reference) {
  size_t at = reference.find("SHA256_v1_");
  return at == std::string::npos ? std::string() : reference.substr(at + 10, 64);
}

// A watch on the first close of the file at `path`, set before the check starts.
int WatchClose(std::string const& path) {
  int watch = inotify_init1(IN_CLOEXEC);
  if (watch >= 0 && inotify_add_watch(watch, path.c_str(), IN_CLOSE_NOWRITE) < 0) {
    close(watch);
    return -1;
  }
  return watch;
}

// On that close, `replacement` takes the file's place.
void SwapOnClose(int watch, std::string const& path, std::string const& replacement) {
  struct pollfd ready = {watch, POLLIN, 0};
  if (poll(&ready, 1, 10000) == 1) {
    std::string temporary = path + ".swap";
    if (link(replacement.c_str(), temporary.c_str()) == 0) rename(temporary.c_str(), path.c_str());
  }
  close(watch);
}

}  // namespace

TEST(ReferenceSwap, TheTreeComparedIsTheOneWhoseSealHeld) {
  ZYNTestTempTree tree;
  fs::create_directories(tree.Path("media/1/docs"));
  fs::create_directories(tree.Path("media/2"));
  for (char const* file : {"media/1/docs/a.txt", "media/2/notes.txt"}) tree.File(file, file);
  std::string const cd1 = tree.Path("media/1");
  std::string const ref = tree.Path("media/1/0data/MediaContent.xml");
  ASSERT_EQ(0, RunZyn({"-generate", "-CD1Path", cd1, "-quiet"}).status);
  std::string const intact = tree.Read("media/1/0data/MediaContent.xml");
  struct stat before;
  ASSERT_EQ(0, stat(tree.Path("media/2/notes.txt").c_str(), &before));
  tree.File("media/2/notes.txt", "damaged");
  struct utimbuf times = {before.st_mtime, before.st_mtime};
  utime(tree.Path("media/2/notes.txt").c_str(), &times);
  tree.Dir("forged");
  ASSERT_EQ(0, RunZyn({"-generate", "-CD1Path", cd1, "-refDir", tree.Path("forged"), "-quiet"}).status);
  std::string forged = tree.Read("forged/1/0data/MediaContent.xml");
  forged.replace(forged.find(SealOf(forged)), 64, SealOf(intact));
  tree.File("intact.xml", intact);

  int passed = 0;
  for (int run = 0; run < 20; ++run) {
    std::remove(ref.c_str());
    tree.File("media/1/0data/MediaContent.xml", forged);
    int watch = WatchClose(ref);
    ASSERT_GE(watch, 0);
    std::thread racer(SwapOnClose, watch, ref, tree.Path("intact.xml"));
    ChildResult check = RunZyn({"-CD1Path", cd1, "-quiet", "-xml", tree.Path("report.xml")});
    racer.join();
    if (check.status == 0) ++passed;
  }
  EXPECT_EQ(0, passed) << "the damaged media passed in " << passed << " of 20 runs";
}
