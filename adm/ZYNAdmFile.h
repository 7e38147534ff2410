#ifndef ZYN_ADM_ZYNADMFILE_H
#define ZYN_ADM_ZYNADMFILE_H

#include <cstdio>

#include "DString.h"
#include "DStrings.h"

struct stat;

// A parsed absolute path: root, directories and file name, with "." and ".." folded
// without touching the disk. Failures go to the error stack under the catalogue
// "ZYNInsControler"; an object that failed construction stays a usable, invalid value.
// The statics are the whole-file and path-text helpers built on top of it.
class ZYNAdmFile {
 public:
  enum Type {
    TypeFile = 0,
    TypeDirectory = 1,
    TypeUnknown = 2,  // not said by the caller; from the disk: nothing there
  };

  ZYNAdmFile(DString path, Type type, unsigned char check);
  ZYNAdmFile(ZYNAdmFile const& other);
  ZYNAdmFile& operator=(ZYNAdmFile const& other);
  virtual ~ZYNAdmFile();

  unsigned char IsValid() const { return _valid; }
  Type GetType() const { return _type; }
  unsigned char IsRootPath() const;
  DString RootPath() const;
  DString FullPath() const { return _fullPath; }
  ZYNAdmFile Parent() const;
  DString GetLastDirectory() const;
  int Access(int mode);
  int MkDirs(unsigned char trial);
  int Delete();

  // The plain path: no trailing slash, also for a directory.
  DString const& PlainPath() const { return _plainPath; }
  DString const& ParentPath() const { return _parentPath; }

  static FILE* FOpen(DString path, char const* mode);
  static int FClose(void* file);
  static Type ReadTypeOnFileSystem(DString path);
  static unsigned char ValidateType(Type requested, Type found, DString given, DString tested);

  // Whole files.
  static int DeleteFile(DString path);
  static int Access(DString path, int mode, Type type);
  static int GetSize(DString path);
  static long GetLastModificationDate(DString path);
  static int MoveFile(DString from, DString to, unsigned char keepMode);
  static int CopyFile(DString from, DString to);
  static int ReplaceInLines(DString path, DString from, DString to);
  static int CreateFileFromLines(DString path, DStrings lines);
  static int AddText(DString path, DString text, unsigned char append);
  static int AddLine(DString path, DString line);

  // Path texts.
  static DString OsSlashNormalize(DString path);
  static DString Slashify(DString path);
  static DString OsPathSeparatorNormalize(DString list);
  static DString CleanPath(DString path);
  static DString OsExeExtensionNormalize(DString name);

 private:
  unsigned char _Parse(DString const& given, unsigned char check);
  void _BuildPaths();

  DString _path;
  DString _root;
  DStrings _directories;
  DString _fileName;
  DString _fullPath;
  DString _plainPath;
  DString _parentPath;
  Type _type;
  unsigned char _valid;
};

// stat() on the narrow form of `path`; -1 when it can't be converted.
int GetStatFile(DString path, struct stat& buffer);

#endif
