// ZYNInsDir.cpp - path and folder helpers: names, parents, listing, the temporary folder.
#include "ZYNInsDir.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "DStrings.h"
#include "ZYNAdmCodePage.h"
#include "ZYNAdmEnv.h"
#include "ZYNAdmError.h"
#include "ZYNAdmFile.h"
#include "ZYNAdmNarrowText.h"
#include "ZYNInsFindFile.h"

static const int S_CopyChunk = 512;
static const int S_CwdBufferSize = 512;

void ZYNInsDir::PushSystemError(DString const& path, int error) {
  DString message(path);
  message.Append(DString(L" "), ZYNAdmCodePage::ConvertStrToUcs(std::strerror(error)), DString(L"\n"));
  ZYNAdmError::Push(message);
}

static void sPushSystemError(DString const& path, int error) { ZYNInsDir::PushSystemError(path, error); }

static void sPushNullPointer() { ZYNAdmError::Push(DString(L"Null pointer assignment")); }

static bool sIsSeparator(wchar_t c) { return c == L'/' || c == L'\\'; }

static void sTrimSeparators(DString& path) {
  int length = path.Length();
  while (length > 0 && sIsSeparator(path[length - 1])) --length;
  if (length < path.Length()) path = path.SubStringD(0, length);
}

// Index of the last "/" or "\", -1 when there is none.
static int sLastSeparator(DString const& path) {
  for (int i = path.Length() - 1; i >= 0; --i) {
    if (sIsSeparator(path[i])) return i;
  }
  return -1;
}

void ZYNInsDir::CleanAndRemoveTaillingSlash(DString& path) {
  path.ReplaceAll(DString(L"\\"), DString(L"/"));
  int length = path.Length();
  while (length > 0 && path[length - 1] == L'/') --length;
  if (length < path.Length()) path = path.SubStringD(0, length);
}

DString ZYNInsDir::GetParentDir(DString path) {
  sTrimSeparators(path);
  int at = sLastSeparator(path);
  if (at < 0) return DString();
  DString parent = path.SubStringD(0, at);
  sTrimSeparators(parent);
  return parent;
}

DString ZYNInsDir::GetName(DString path) {
  sTrimSeparators(path);
  int at = sLastSeparator(path);
  if (at < 0) return DString();
  return path.SubStringD(at + 1, path.Length());
}

bool ZYNInsDir::List(DString path, DStrings& names, bool includeDirectories, bool recursive) {
  ZYNInsFindFile finder(path, 3);
  while (finder.GetNextFile() == 1) {
    if (finder.GetType() != 1) {
      names.PutBack(finder.GetName());
      continue;
    }
    if (includeDirectories) names.PutBack(finder.GetName());
    if (recursive) {
      DString child(path);
      child.Append(DString(L"/"), finder.GetName());
      List(child, names, includeDirectories, true);
    }
  }
  return true;
}

// The last entry of PATH, the one with no ":" behind it, is never tried.
static DString sSearchPath(DString const& name) {
  DString entries = ZYNAdmEnv::GetEnv(DString(L"PATH"));
  DString colon(L":");
  for (int at = entries.SearchSubString(colon, 0); at >= 0; at = entries.SearchSubString(colon, 0)) {
    DString candidate = entries.SubStringD(0, at);
    candidate.Append(DString(L"/"), name);
    if (ZYNInsDir::Access(candidate, 0) == 0) return candidate;
    entries.Remove(0, at + 1);
  }
  return DString();
}

DString ZYNInsDir::GetExecutableFullPath(DString argv0) {
  if (argv0.IsEmpty()) return DString();
  if (argv0[0] == L'/') return argv0;
  if (argv0.SearchSubString(DString(L"/"), 0) < 0) {
    DString found = sSearchPath(argv0);
    if (!found.IsEmpty()) return found;
  }
  char buffer[S_CwdBufferSize];
  if (getcwd(buffer, sizeof buffer) == nullptr) return DString();
  DString result = ZYNAdmCodePage::ConvertStrToUcs(buffer);
  if (!(result.Length() == 1 && result[0] == L'/')) result.Append(L'/');
  // Only a leading "./" goes; "../" stays as it is.
  if (argv0.Length() >= 2 && argv0[0] == L'.' && argv0[1] == L'/') {
    result.Append(argv0, 2, argv0.Length());
  } else {
    result.Append(argv0);
  }
  return result;
}

// The real path of a link, "/" + ... form; the path itself where it can't be resolved.
static DString sResolved(DString const& path) {
  ZYNAdmNarrowText narrow(path);
  if (narrow.IsNull()) return path;
  struct stat status;
  if (lstat(narrow.Get(), &status) != 0 || !S_ISLNK(status.st_mode)) return path;
  char resolved[PATH_MAX];
  if (realpath(narrow.Get(), resolved) == nullptr) return path;
  return ZYNAdmCodePage::ConvertStrToUcs(resolved);
}

DString ZYNInsDir::Normalise(DString path) {
  if (path.IsEmpty() || path[0] != L'/') return path;
  DStrings parts;
  path.Split(DString(L"/"), parts);
  DString result;
  for (int i = 0; i < parts.GetLength(); ++i) {
    DString const& part = *parts.GetAsPtr(i);
    if (part.IsEmpty() || part == DString(L".")) continue;
    if (part != DString(L"..")) {
      result.Append(DString(L"/"), part);
      continue;
    }
    result = sResolved(result);
    int at = sLastSeparator(result);
    result = at <= 0 ? DString() : result.SubStringD(0, at);
  }
  return result.IsEmpty() ? DString(L"/") : result;
}

int ZYNInsDir::Access(DString path, int mode) {
  ZYNAdmNarrowText narrow(path);
  if (narrow.IsNull()) return -1;
  int result = access(narrow.Get(), mode);
  if (result == 0) return 0;
  sPushSystemError(path, errno);
  return result;
}

// HOME is taken as it stands, without a test; /tmp and /home must be writable.
static DString sTemporaryCandidate() {
  DString tmp(L"/tmp");
  if (ZYNInsDir::Access(tmp, 6) == 0) return tmp;
  DString home = ZYNAdmEnv::GetEnv(DString(L"HOME"));
  if (!home.IsEmpty()) return home;
  DString homeFolder(L"/home");
  if (ZYNInsDir::Access(homeFolder, 6) == 0) return homeFolder;
  return DString();
}

DString ZYNInsDir::GetTemporaryPath() {
  DString chosen = sTemporaryCandidate();
  int length = chosen.Length();
  // One trailing slash goes, once.
  if (length > 0 && chosen[length - 1] == L'/') return chosen.SubStringD(0, length - 1);
  return chosen;
}

// The file object knows absolute paths only: a relative one is taken from the working
// directory, as the system calls take it.
static DString sAbsolute(DString const& path) {
  if (path.IsEmpty() || path[0] == L'/') return path;
  char buffer[PATH_MAX];
  if (getcwd(buffer, sizeof buffer) == nullptr) return path;
  DString absolute = ZYNAdmCodePage::ConvertStrToUcs(buffer);
  absolute.Append(DString(L"/"), path);
  return absolute;
}

bool ZYNInsDir::CreateDir(DString path) {
  ZYNAdmFile directory(sAbsolute(path), ZYNAdmFile::TypeDirectory, 0);
  if (directory.Access(0) >= 0) return true;
  return directory.MkDirs(0) >= 0;
}

int ZYNInsDir::CanWriteIn(DString folder) {
  ZYNAdmNarrowText narrow(folder);
  if (narrow.IsNull()) return ZYNInsFolderCannotBeMade;
  std::string path = narrow.Get();
  bool itself = true;
  for (;;) {
    struct stat status;
    if (stat(path.empty() ? "/" : path.c_str(), &status) == 0) {
      if (!S_ISDIR(status.st_mode)) return ZYNInsFolderCannotBeMade;
      bool writable = access(path.empty() ? "/" : path.c_str(), W_OK | X_OK) == 0;
      if (itself) return writable ? ZYNInsFolderWritable : ZYNInsFolderNotWritable;
      return writable ? ZYNInsFolderWritable : ZYNInsFolderCannotBeMade;
    }
    // Only a name that isn't there yet can be made.
    if (errno != ENOENT) return ZYNInsFolderCannotBeMade;
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
      if (path == ".") return ZYNInsFolderCannotBeMade;
      path = ".";
    } else {
      path.erase(slash);
    }
    itself = false;
  }
}

FILE* ZYNInsDir::FOpen(DString path, DString mode) {
  FILE* stream = nullptr;
  int error = 0;
  {
    ZYNAdmNarrowText narrowPath(path);
    if (narrowPath.IsNull()) {
      sPushNullPointer();
      return nullptr;
    }
    ZYNAdmNarrowText narrowMode(mode);
    if (narrowMode.IsNull()) {
      sPushNullPointer();
      return nullptr;
    }
    stream = std::fopen(narrowPath.Get(), narrowMode.Get());
    error = errno;
  }
  if (stream != nullptr) return stream;
  sPushSystemError(path, error);
  errno = error;
  return nullptr;
}

// Copies in 512-byte reads until one gives nothing; a read fault looks like the end.
static void sCopyBytes(FILE* from, FILE* to) {
  char buffer[S_CopyChunk];
  for (;;) {
    size_t got = std::fread(buffer, 1, sizeof buffer, from);
    if (got == 0) return;
    std::fwrite(buffer, 1, got, to);
  }
}

// Reports `failing` with the current errno; a stream still open is closed without a
// word, since its own failure would only hide the one reported.
static bool sCopyFailed(DString const& failing, FILE* first, FILE* second) {
  int error = errno;
  if (first != nullptr) std::fclose(first);
  if (second != nullptr) std::fclose(second);
  sPushSystemError(failing, error);
  return false;
}

bool ZYNInsDir::FileCopy(DString source, DString target) {
  // Both opens come first: a missing source still creates or empties the target.
  FILE* from = FOpen(source, DString(L"r"));
  int fromError = errno;
  FILE* to = FOpen(target, DString(L"wb"));
  int toError = errno;
  if (from == nullptr || to == nullptr) {
    errno = from == nullptr ? fromError : toError;
    return sCopyFailed(from == nullptr ? source : target, from, to);
  }
  sCopyBytes(from, to);
  struct stat status;
  if (fstat(fileno(from), &status) != 0) return sCopyFailed(source, from, to);
  if (fchmod(fileno(to), status.st_mode) != 0) return sCopyFailed(target, from, to);
  if (std::fclose(from) != 0) return sCopyFailed(source, to, nullptr);
  if (std::fclose(to) != 0) return sCopyFailed(target, nullptr, nullptr);
  return true;
}

bool ZYNInsDir::RemoveFile(DString path) {
  ZYNAdmNarrowText narrow(path);
  if (narrow.IsNull()) {
    sPushNullPointer();
    return false;
  }
  if (unlink(narrow.Get()) == 0) return true;
  sPushSystemError(path, errno);
  return false;
}
