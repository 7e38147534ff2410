// ZYNAdmStdLib.cpp - narrow-path system calls that report errno values.
#include "ZYNAdmStdLib.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "ZYNAdmNarrowText.h"

static const int S_CopyBufferSize = 8192;

static bool sIsDotOrDotDot(char const* name) {
  return name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
}

static std::string sChild(char const* path, char const* name) {
  std::string child(path);
  child += '/';
  child += name;
  return child;
}

// Creates `path` and each missing level above it. An existing directory passes, as does
// EEXIST from a racing creator; a level that is something else gives ENOTDIR.
static int sMakeLevels(std::string const& path) {
  std::string level;
  size_t from = 0;
  while (from <= path.size()) {
    size_t slash = path.find('/', from);
    size_t end = slash == std::string::npos ? path.size() : slash;
    level.assign(path, 0, end);
    from = end + 1;
    if (level.empty()) continue;
    struct stat buffer;
    if (stat(level.c_str(), &buffer) == 0) {
      if (!S_ISDIR(buffer.st_mode)) return ENOTDIR;
      continue;
    }
    if (mkdir(level.c_str(), 0755) != 0 && errno != EEXIST) return errno;
  }
  return 0;
}

unsigned char ZYNAdmStdLib::Exists(DString path) {
  ZYNAdmNarrowText narrow(path);
  if (narrow.IsNull()) return 0;
  return access(narrow.Get(), F_OK) == 0 ? 1 : 0;
}

int ZYNAdmStdLib::Rename(DString from, DString to) {
  if (from.IsEmpty() || to.IsEmpty()) return ENOENT;
  ZYNAdmNarrowText narrowFrom(from);
  ZYNAdmNarrowText narrowTo(to);
  if (narrowFrom.IsNull() || narrowTo.IsNull()) return ENOMEM;
  return std::rename(narrowFrom.Get(), narrowTo.Get()) == 0 ? 0 : errno;
}

int ZYNAdmStdLib::Copy(DString from, DString to) {
  if (from.IsEmpty() || to.IsEmpty()) return ENOENT;
  ZYNAdmNarrowText narrowFrom(from);
  ZYNAdmNarrowText narrowTo(to);
  if (narrowFrom.IsNull() || narrowTo.IsNull()) return ENOMEM;
  struct stat buffer;
  if (stat(narrowFrom.Get(), &buffer) != 0) return errno;
  char* source = const_cast<char*>(narrowFrom.Get());
  char* target = const_cast<char*>(narrowTo.Get());
  return S_ISDIR(buffer.st_mode) ? CopyDir(source, target) : CopyFile(source, target);
}

int ZYNAdmStdLib::Delete(DString path) {
  if (path.IsEmpty()) return ENOENT;
  ZYNAdmNarrowText narrow(path);
  if (narrow.IsNull()) return ENOMEM;
  return Delete(const_cast<char*>(narrow.Get()));
}

int ZYNAdmStdLib::Delete(char* path) {
  struct stat buffer;
  if (lstat(path, &buffer) != 0) return errno;
  if (!S_ISDIR(buffer.st_mode)) return unlink(path) == 0 ? 0 : errno;
  int result = DeleteDir(path);
  if (result != 0) return result;
  return rmdir(path) == 0 ? 0 : errno;
}

int DeleteDir(char* path) {
  DIR* directory = opendir(path);
  if (directory == nullptr) return errno;
  int result = 0;
  std::string child;
  errno = 0;
  while (struct dirent* entry = readdir(directory)) {
    if (sIsDotOrDotDot(entry->d_name)) continue;
    child = sChild(path, entry->d_name);
    struct stat buffer;
    if (lstat(child.c_str(), &buffer) != 0) {
      result = errno;
      break;
    }
    if (S_ISDIR(buffer.st_mode)) {
      result = DeleteDir(&child[0]);
      if (result == 0 && rmdir(child.c_str()) != 0) result = errno;
    } else if (unlink(child.c_str()) != 0) {
      result = errno;
    }
    if (result != 0) break;
  }
  closedir(directory);
  return result;
}

int CopyDir(char* from, char* to) {
  DIR* directory = opendir(from);
  if (directory == nullptr) return errno;
  int result = 0;
  bool copied = false;
  std::string childFrom;
  std::string childTo;
  while (struct dirent* entry = readdir(directory)) {
    if (sIsDotOrDotDot(entry->d_name)) continue;
    copied = true;
    childFrom = sChild(from, entry->d_name);
    childTo = sChild(to, entry->d_name);
    struct stat buffer;
    if (stat(childFrom.c_str(), &buffer) != 0) {
      result = errno;
      break;
    }
    result = S_ISDIR(buffer.st_mode) ? CopyDir(&childFrom[0], &childTo[0]) : CopyFile(&childFrom[0], &childTo[0]);
    if (result != 0) break;
  }
  closedir(directory);
  if (result != 0) return result;
  // The files copied have created their folders; an empty one must be made here.
  if (!copied) return sMakeLevels(to);
  return 0;
}

// Closes both descriptors and gives back the errno of the failure that led here.
static int sCloseBoth(int input, int output, int error) {
  close(input);
  close(output);
  return error;
}

int CopyFile(char* from, char* to) {
  if (std::strcmp(from, to) == 0) return EEXIST;
  char const* lastSlash = std::strrchr(to, '/');
  if (lastSlash != nullptr && lastSlash != to) {
    int result = sMakeLevels(std::string(to, static_cast<size_t>(lastSlash - to)));
    if (result != 0) return result;
  }
  struct stat source;
  if (stat(from, &source) != 0) return errno;
  struct stat existing;
  if (lstat(to, &existing) == 0) {
    int result = ZYNAdmStdLib::Delete(to);
    if (result != 0) return result;
  }

  int input = open(from, O_RDONLY);
  if (input < 0) return errno;
  int output = open(to, O_WRONLY | O_CREAT | O_TRUNC, source.st_mode & 0x1FF);
  if (output < 0) {
    int error = errno;
    close(input);
    return error;
  }
  char buffer[S_CopyBufferSize];
  for (;;) {
    ssize_t got = read(input, buffer, sizeof buffer);
    if (got == 0) break;
    if (got < 0) return sCloseBoth(input, output, errno);
    for (ssize_t done = 0; done < got;) {
      ssize_t put = write(output, buffer + done, static_cast<size_t>(got - done));
      if (put < 0) return sCloseBoth(input, output, errno);
      done += put;
    }
  }
  close(input);
  if (close(output) != 0) return errno;
  if (source.st_atime != 0) {
    struct utimbuf times;
    times.actime = source.st_atime;
    times.modtime = source.st_mtime;
    utime(to, &times);
  }
  return 0;
}
