/* Preloaded into a probe: no file is created nameless, and the wall clock stands still,
 * so that the hidden names a replaced file takes are known beforehand. */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

int clock_gettime(clockid_t clock, struct timespec* now) {
  if (clock != CLOCK_REALTIME) return (int)syscall(SYS_clock_gettime, clock, now);
  now->tv_sec = 1700000000;
  now->tv_nsec = 0x1234;
  return 0;
}

static int sOpen(char const* path, int flags, va_list rest) {
  mode_t mode = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(rest, mode_t) : 0;
  if ((flags & O_TMPFILE) == O_TMPFILE) {
    errno = EOPNOTSUPP;
    return -1;
  }
  return (int)syscall(SYS_openat, AT_FDCWD, path, flags, mode);
}

int open(char const* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  int fd = sOpen(path, flags, rest);
  va_end(rest);
  return fd;
}

int open64(char const* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  int fd = sOpen(path, flags, rest);
  va_end(rest);
  return fd;
}
