// ZYNAdmSetJournalTest.cpp - the replay of a set's journal left by a killed commit.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "ZYNAdmSetJournal.h"
#include "support/ZYNTestTempTree.h"

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
TEST(ZYNAdmSetJournal, ReplayedForwardWhereEveryNewFileIsLeftElseBack) {
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
TEST(ZYNAdmSetJournal, NotOursOrNamingOtherPathsIsLeftAlone) {
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
