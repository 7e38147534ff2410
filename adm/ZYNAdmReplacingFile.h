#ifndef ZYN_ADM_ZYNADMREPLACINGFILE_H
#define ZYN_ADM_ZYNADMREPLACINGFILE_H

#include <sys/stat.h>

#include <memory>
#include <string>
#include <vector>

#include "DString.h"
#include "ZYNAdmOutputStream.h"

// Writes a file that takes the place of the one at its path only when whole: the bytes go
// to a new file beside it, nameless where the file system allows (O_TMPFILE), else under
// a hidden name removed on SIGINT, SIGTERM and SIGHUP. Close flushes it to disk and, unless
// the file is one of a set (`deferred`, see ZYNAdmReplacingFileSet), Commit puts it at the
// path. A link at the path is replaced, never followed; on any failure, or if the object
// dies before its commit, the new file goes and the old one stays as it was. The old
// file's mode is kept only when its owner is ours: another user's file gets the mode of a
// new one. A character device at the path (such as /dev/null) can't be replaced and is
// written in place.
class ZYNAdmReplacingFile : public ZYNAdmOutputStream {
 public:
  explicit ZYNAdmReplacingFile(DString path, bool deferred = false)
      : _path(path), _handle(0), _failed(false), _deferred(deferred), _flushed(false) {}
  ~ZYNAdmReplacingFile() override;
  int Open() override;
  int Write(unsigned char* buffer, int count) override;
  int Close() override;  // 1 when the file is on disk (and, unless deferred, at its path)
  int Commit();          // 1 when the closed file is at its path

 private:
  ZYNAdmReplacingFile(ZYNAdmReplacingFile const&) = delete;
  ZYNAdmReplacingFile& operator=(ZYNAdmReplacingFile const&) = delete;
  friend class ZYNAdmReplacingFileSet;
  void Discard();
  int Plan(struct stat& identity);
  int Name();
  int Rename(bool keepOld);
  void Done();

  DString _path;
  std::string _final;      // the narrow path
  std::string _temporary;  // the hidden name; empty when nameless or written in place
  std::string _aside;      // where the hidden name goes, if not beside the path
  std::string _planned;    // the hidden name a nameless file is to get
  long _handle;
  bool _failed;
  bool _deferred;
  bool _flushed;  // closed whole, waiting for Commit
  bool _nameless = false;
  bool _inPlace = false;
  int _slot = -1;                   // of the hidden name, removed on a signal
  size_t _put = 0;                  // bytes written
  size_t _syncStarted = 0;          // bytes the device was asked to write out
  std::unique_ptr<char[]> _buffer;  // the stream's, freed after it is closed
};

// New files that replace old ones together: each is written and flushed through its own
// Add()ed stream, and only when every one of them closed whole does Commit put them all
// at their paths, one rename each, with nothing slow between the renames. Files not
// committed are removed with the set. With a journal, a run killed between two renames
// leaves what Recover, in the next run, turns into the old set or the new one.
class ZYNAdmReplacingFileSet {
 public:
  ZYNAdmReplacingFileSet() = default;
  // `aside`: a folder on the same file system for the hidden names, where a run killed
  // half way leaves nothing a later look at the folders of `path` would find.
  ZYNAdmReplacingFile& Add(DString const& path, DString const& aside = DString());
  // Where Commit records the swaps it is about to make (see ZYNAdmSetJournal); none by
  // default. A journal that can't be written costs only the replay.
  void SetJournal(DString const& path);
  int Commit();                                      // 1 when every file is at its path
  DString const& Failed() const { return _failed; }  // the path that failed the commit
  // The set a killed Commit left made whole, if `journal` is there and names only paths
  // among `finals`: ZYNAdmSetJournal::Outcome's values.
  static int Recover(DString const& journal, std::vector<DString> const& finals);

 private:
  ZYNAdmReplacingFileSet(ZYNAdmReplacingFileSet const&) = delete;
  ZYNAdmReplacingFileSet& operator=(ZYNAdmReplacingFileSet const&) = delete;
  int WriteJournal();  // its descriptor, or -1
  std::vector<std::unique_ptr<ZYNAdmReplacingFile>> _files;
  DString _failed;
  std::string _journal;
};

#endif
