#ifndef ZYN_MEDIA_ZYNINSDIR_H
#define ZYN_MEDIA_ZYNINSDIR_H

#include <cstdio>

#include "DString.h"

class DStrings;

// What CanWriteIn finds.
enum ZYNInsFolderState {
  ZYNInsFolderWritable = 0,      // there and writable, or can be made with what is above
  ZYNInsFolderNotWritable = 1,   // there, but nothing can be written in it
  ZYNInsFolderCannotBeMade = 2,  // missing, and what is above it can't take it
};

// The application's stateless path and file operations. Which separators an
// operation knows differs on purpose: CleanAndRemoveTaillingSlash rewrites "\" to "/",
// GetParentDir and GetName accept both, GetExecutableFullPath and GetTemporaryPath
// know "/" alone. Failures go to the error stack as path, blank, system text, LF.
class ZYNInsDir {
 public:
  static void CleanAndRemoveTaillingSlash(DString& path);
  // Empty for a bare name and for a child of the root: the root is never a parent.
  static DString GetParentDir(DString path);
  // Empty for a text without a separator.
  static DString GetName(DString path);
  // Appends bare names in directory order; always true, a failure stays on the stack.
  static bool List(DString path, DStrings& names, bool includeDirectories, bool recursive);
  static DString GetExecutableFullPath(DString argv0);
  // An absolute path without "." and ".." in it, naming what the kernel would reach:
  // ".." behind a link leaves the link's target. Relative paths come back as given.
  static DString Normalise(DString path);
  // 0, or what access() gave after pushing its message; -1 silently if unconvertible.
  static int Access(DString path, int mode);
  static DString GetTemporaryPath();
  // Accepts a path relative to the working directory.
  static bool CreateDir(DString path);
  // Tells, without making anything, whether a file could be written in `folder` (a
  // ZYNInsFolderState).
  static int CanWriteIn(DString folder);
  static FILE* FOpen(DString path, DString mode);
  static bool FileCopy(DString source, DString target);
  static bool RemoveFile(DString path);
  // The record every failure above leaves: path, blank, the system's text, LF.
  static void PushSystemError(DString const& path, int error);
};

#endif
