// ZYNInsEntryInputFile.cpp - a listed file read through its folder's descriptor.
#include "ZYNInsEntryInputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>

#include "ZYNInsRunFault.h"

ZYNInsEntryInputFile::~ZYNInsEntryInputFile() {
  if (_fd >= 0) close(_fd);
}

int ZYNInsEntryInputFile::Open() {
  if (_fd >= 0 || _folderFd < 0) return 0;
  int fd = openat(_folderFd, _name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) ZYNInsThrowIfRunFault(errno);
  if (fd < 0) return 0;
  struct stat status;
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    close(fd);
    return 0;
  }
  _fd = fd;
  _opened = status;
  _size = static_cast<long long>(status.st_size);
  _lastWriteTime = static_cast<long long>(status.st_mtime);
  _position = 0;
  if (_misses != nullptr && _size > 0) {
    // One byte that may only come from memory; it moves nothing and stands for no read.
    unsigned char first;
    struct iovec piece = {&first, 1};
    if (preadv2(fd, &piece, 1, 0, RWF_NOWAIT) < 0 && errno == EAGAIN) _misses->fetch_add(1, std::memory_order_relaxed);
  }
  return 1;
}

int ZYNInsEntryInputFile::Read(unsigned char* buffer, int count) {
  if (_fd < 0 || buffer == nullptr || count < 1) return -1;
  int got = 0;
  while (got < count) {
    ssize_t step = read(_fd, buffer + got, static_cast<size_t>(count - got));
    if (step < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (step == 0) break;
    got += static_cast<int>(step);
    _position += step;
    // A short read that reaches the size seen at opening is the end: no read for a 0.
    if (got < count && _position >= _size) break;
  }
  return got;
}

static bool sSameTime(struct timespec const& a, struct timespec const& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// Size, times and inode taken again after the last read: a file rewritten, truncated or
// replaced meanwhile would give a digest of neither state.
int ZYNInsEntryInputFile::Close() {
  if (_fd < 0) return 0;
  struct stat now;
  bool same = fstat(_fd, &now) == 0 && now.st_ino == _opened.st_ino && now.st_dev == _opened.st_dev &&
              now.st_size == _opened.st_size && sSameTime(now.st_mtim, _opened.st_mtim) &&
              sSameTime(now.st_ctim, _opened.st_ctim);
  int result = close(_fd);
  _fd = -1;
  return result == 0 && same ? 1 : 0;
}
