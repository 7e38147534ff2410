#ifndef ZYN_MEDIA_ZYNINSFINDFILE_H
#define ZYN_MEDIA_ZYNINSFINDFILE_H

// ZYNInsFindFile.h - the entries of one folder, one per step, without recursing.

#include <dirent.h>
#include <sys/types.h>

#include <cstdint>
#include <string>

#include "DString.h"

// Walks the entries of one directory, one per step, without recursing. Links are
// followed: a link to a folder is a directory, and a dangling one ends the walk with
// a failure. Types double as mask bits: 1 directory, 2 regular file, 0 anything else.
//
// The folder is opened once and its entries are looked at relative to it, so a step
// costs no resolution of the whole path; `path` is what messages name it by.
class ZYNInsFindFile {
 public:
  ZYNInsFindFile(DString path, int typeMask);
  ~ZYNInsFindFile();

  // 1 an entry of the mask is current, 0 end of the directory, -1 failure (on the
  // error stack). "." and ".." are never given.
  int GetNextFile();
  // The raw step: every entry, "." and ".." included, whatever the mask.
  int GetNext();

  DString GetName() const { return _name; }
  // The name as given to the system: what a caller opens relative to the folder.
  std::string const& GetNarrowName() const { return _narrowName; }
  int GetType() const { return _type; }
  int64_t GetCreationTime() const { return _creationTime; }  // st_ctime
  int64_t GetLastAccessTime() const { return _lastAccessTime; }
  int64_t GetLastWriteTime() const { return _lastWriteTime; }

  // Opens the folder now, if the first step hasn't. 1 open (or already listed), -1 failed
  // with the reason pushed; GetNextFile then gives -1 again without a second record.
  int Open();
  // Device and inode of the open folder; false before it is open.
  bool GetFolderId(dev_t& device, ino_t& inode) const;
  // Ends the folder with ELOOP, as the system does for a path that leads back into
  // itself; the reason is pushed and the next step gives -1.
  void FailAsLoop();
  // Entries that the listing itself says are a regular file or a directory are not
  // looked up: their times stay unknown (HasTimes false) for the caller to take where
  // it opens the file anyway. Links and the rest are still followed.
  void SetTypesFromListing(bool on) { _typesFromListing = on; }
  bool HasTimes() const { return _hasTimes; }

 private:
  ZYNInsFindFile(ZYNInsFindFile const&) = delete;
  ZYNInsFindFile& operator=(ZYNInsFindFile const&) = delete;

  int _Open();
  void _Close();
  void _Abandon();
  int _FailEntry(int error);

  int32_t _type;
  DString _name;
  std::string _narrowName;
  int64_t _creationTime;
  int64_t _lastAccessTime;
  int64_t _lastWriteTime;
  int32_t _typeMask;
  DString _path;
  DIR* _handle;
  bool _hasId;         // `_device` and `_inode` are the open folder's
  size_t _pathLength;  // of the narrow path, to refuse what the system would refuse by path
  bool _failedOpen;    // the failure of an early Open, given once more by the next step
  bool _typesFromListing;
  bool _hasTimes;
  dev_t _device;
  ino_t _inode;
};

#endif
