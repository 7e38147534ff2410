#ifndef ZYN_MEDIA_ZYNINSFINDFILE_H
#define ZYN_MEDIA_ZYNINSFINDFILE_H

#include <dirent.h>

#include <cstdint>
#include <string>

#include "DString.h"

// Walks the entries of one directory, one per step, without recursing. Links are
// followed: a link to a folder is a directory, and a dangling one ends the walk with
// a failure. Types double as mask bits: 1 directory, 2 regular file, 0 anything else.
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
  int GetType() const { return _type; }
  int64_t GetCreationTime() const { return _creationTime; }  // st_ctime
  int64_t GetLastAccessTime() const { return _lastAccessTime; }
  int64_t GetLastWriteTime() const { return _lastWriteTime; }

 private:
  ZYNInsFindFile(ZYNInsFindFile const&) = delete;
  ZYNInsFindFile& operator=(ZYNInsFindFile const&) = delete;

  int _Open();
  void _Abandon();

  int32_t _type;
  DString _name;
  int64_t _creationTime;
  int64_t _lastAccessTime;
  int64_t _lastWriteTime;
  int32_t _typeMask;
  DString _path;
  DIR* _handle;
  // The narrow path and a "/" while the directory is open; each entry's name is put
  // behind it in place, so a step costs no conversion of the whole path.
  std::string _entryPath;
  size_t _prefixLength;
};

#endif
