#ifndef ZYN_ADM_ZYNADMSETJOURNAL_H
#define ZYN_ADM_ZYNADMSETJOURNAL_H

#include <string>
#include <vector>

// What a set of files being swapped into place leaves on disk for the next run, so that
// a run killed between two swaps leaves the old set or the new one, never a mix: for
// each file its final path, the hidden name its new file (then its old one) is under,
// and the device and inode of the new file. Written whole before the first swap,
// removed after the last; a later run finds it only where the swaps were cut short.
class ZYNAdmSetJournal {
 public:
  struct Member {
    std::string final;   // absolute, its folder without links
    std::string hidden;  // the same
    unsigned long long device = 0, inode = 0;
  };
  enum Outcome { None = 0, Forward = 1, Back = 2, Ignored = -1, Failed = -2 };

  static std::string Format(std::vector<Member> const& members);
  // False on any byte out of the shape Format writes.
  static bool Parse(std::string const& bytes, std::vector<Member>& members);

  // `path` with its folder resolved: empty where the folder can't be.
  static std::string Canonical(std::string const& path);
  // A new journal at `path`, on disk with its folder entry, where none was: its
  // descriptor, locked until Remove, so that no other run replays the swaps under way;
  // -1 if not.
  static int Write(std::string const& path, std::vector<Member> const& members);
  static void Remove(std::string const& path, int descriptor);

  // The set of the journal at `path` made whole: forward where every new file is still
  // there (at its path or under its hidden name), else back; then the hidden names and
  // the journal go. A journal locked by a run still swapping, one that isn't ours alone
  // (a link, another owner, writable by others), or one naming a final path not in
  // `finals` or a hidden name elsewhere than beside its path or the journal, is left as
  // it is (Ignored). Failed: a step couldn't be done (a read-only media); the journal
  // stays for a run that can.
  static Outcome Recover(std::string const& path, std::vector<std::string> const& finals);
};

#endif
