// ZYNAdmWholeFile.cpp - a file read whole through one descriptor.
#include "ZYNAdmWholeFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "ZYNAdmNarrowText.h"

static bool sSameState(struct stat const& a, struct stat const& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec &&
         a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

static int sRead(int fd, std::size_t limit, std::string& bytes, struct stat& status) {
  struct stat before;
  if (fstat(fd, &before) != 0) return errno;
  if (!S_ISREG(before.st_mode)) return EINVAL;
  if (static_cast<unsigned long long>(before.st_size) > limit) return EFBIG;
  bytes.clear();
  bytes.reserve(static_cast<std::size_t>(before.st_size));
  char chunk[65536];
  for (;;) {
    ssize_t got = read(fd, chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    if (got == 0) break;
    if (bytes.size() + static_cast<std::size_t>(got) > limit) return EFBIG;
    bytes.append(chunk, static_cast<std::size_t>(got));
  }
  if (fstat(fd, &status) != 0) return errno;
  // A file written while it was read holds neither its old bytes nor its new ones.
  if (!sSameState(before, status) || bytes.size() != static_cast<std::size_t>(status.st_size)) return EAGAIN;
  return 0;
}

int ZYNAdmReadWholeFile(DString const& path, std::size_t limit, std::string& bytes, struct stat& status) {
  ZYNAdmNarrowText narrow(path);
  if (narrow.IsNull() || narrow.Get()[0] == 0) return ENOENT;
  int fd = open(narrow.Get(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) return errno;
  int result = sRead(fd, limit, bytes, status);
  close(fd);
  if (result != 0) bytes.clear();
  return result;
}
