#ifndef ZYN_ADM_ZYNADMSTDLIB_H
#define ZYN_ADM_ZYNADMSTDLIB_H

#include "DString.h"

// Narrow-path system calls. Results: 0 for success, otherwise an errno value; 2 stands
// for an empty path and 12 for a path that can't be converted.
class ZYNAdmStdLib {
 public:
  static unsigned char Exists(DString path);
  static int Rename(DString from, DString to);
  static int Copy(DString from, DString to);
  static int Delete(DString path);
  // A link is removed, never followed; a directory goes with all it holds.
  static int Delete(char* path);
};

// Empties `path` without removing it; links are not followed.
int DeleteDir(char* path);
// Copies a tree, following links; an empty directory is created with all its levels.
int CopyDir(char* from, char* to);
// Copies one file with the source's permission bits and times; 17 onto itself.
int CopyFile(char* from, char* to);

#endif
