// ZYNAdmReplacingFile.cpp - a file written whole beside its final name, then renamed over it.
#include "ZYNAdmReplacingFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

#include "ZYNAdmNarrowText.h"

static const size_t S_WriteBuffer = 256 * 1024;

static FILE* sFile(long handle) { return reinterpret_cast<FILE*>(handle); }

// A name beside `path` that nobody else can be writing: made with O_EXCL, so a file or a
// link planted there makes us try another name rather than use it.
static int sCreateBeside(std::string const& path, mode_t mode, std::string& temporary) {
  static std::atomic<unsigned> S_counter(0);
  size_t slash = path.rfind('/');
  std::string folder = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  for (int attempt = 0; attempt < 100; ++attempt) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    char suffix[64];
    std::snprintf(suffix, sizeof suffix, ".%d.%u.%lx~", static_cast<int>(getpid()), S_counter.fetch_add(1),
                  static_cast<unsigned long>(now.tv_nsec));
    temporary = folder + "." + name + suffix;
    int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  return -1;
}

// The rename is on disk only once its folder is; a failure here loses no data.
static void sSyncFolder(std::string const& path) {
  size_t slash = path.rfind('/');
  std::string folder = slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
  int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

ZYNAdmReplacingFile::~ZYNAdmReplacingFile() { Discard(); }

void ZYNAdmReplacingFile::Discard() {
  if (_handle != 0) std::fclose(sFile(_handle));
  _handle = 0;
  if (!_temporary.empty()) unlink(_temporary.c_str());
  _temporary.clear();
}

int ZYNAdmReplacingFile::Open() {
  Discard();
  _failed = false;
  ZYNAdmNarrowText narrow(_path);
  if (narrow.IsNull()) return 0;
  _final = narrow.Get();
  struct stat existing;
  bool exists = lstat(_final.c_str(), &existing) == 0;
  if (exists && S_ISCHR(existing.st_mode)) {
    FILE* file = std::fopen(_final.c_str(), "wb");
    _handle = reinterpret_cast<long>(file);
    return file != nullptr ? 1 : 0;
  }
  // A file replaced keeps its permissions, as one rewritten in place would.
  mode_t mode = exists && S_ISREG(existing.st_mode) ? (existing.st_mode & 0777) : 0666;
  int fd = sCreateBeside(_final, mode, _temporary);
  if (fd < 0) {
    _temporary.clear();
    return 0;
  }
  if (exists && S_ISREG(existing.st_mode)) fchmod(fd, mode);  // the umask may have narrowed it
  FILE* file = fdopen(fd, "wb");
  if (file == nullptr) {
    close(fd);
    Discard();
    return 0;
  }
  // A reference of a million files is 140 MB: written in large pieces, not 4 KiB ones.
  if (!_buffer) _buffer.reset(new char[S_WriteBuffer]);
  setvbuf(file, _buffer.get(), _IOFBF, S_WriteBuffer);
  _handle = reinterpret_cast<long>(file);
  return 1;
}

int ZYNAdmReplacingFile::Write(unsigned char* buffer, int count) {
  if (_handle == 0 || count < 0) return -1;
  size_t put = std::fwrite(buffer, 1, static_cast<size_t>(count), sFile(_handle));
  if (put != static_cast<size_t>(count)) _failed = true;
  return static_cast<int>(put);
}

int ZYNAdmReplacingFile::Close() {
  if (_handle == 0) return 0;
  FILE* file = sFile(_handle);
  _handle = 0;
  if (_temporary.empty()) return std::fclose(file) == 0 && !_failed ? 1 : 0;
  bool whole = !_failed && std::fflush(file) == 0 && fsync(fileno(file)) == 0;
  whole = std::fclose(file) == 0 && whole;
  if (!whole || rename(_temporary.c_str(), _final.c_str()) != 0) {
    Discard();
    return 0;
  }
  _temporary.clear();
  sSyncFolder(_final);
  return 1;
}
