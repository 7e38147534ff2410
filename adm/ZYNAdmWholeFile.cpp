// ZYNAdmWholeFile.cpp - a file read whole through one descriptor.
#include "ZYNAdmWholeFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>

#include "QRTWorkers.h"
#include "ZYNAdmNarrowText.h"

static bool sSameState(struct stat const& a, struct stat const& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec &&
         a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

// The whole units of `unit` bytes (a power of two) within [start, start + length).
static bool sWholeUnits(char* start, std::size_t length, std::size_t unit, std::uintptr_t& first, std::uintptr_t& end) {
  first = (reinterpret_cast<std::uintptr_t>(start) + unit - 1) & ~(unit - 1);
  end = (reinterpret_cast<std::uintptr_t>(start) + length) & ~(unit - 1);
  return end > first;
}

// A reference of a million files is some 130 MB: in pages of 4 KiB, faulting its buffer
// in costs more than reading it.
static void sPreferHugePages(char* start, std::size_t length) {
  std::uintptr_t first = 0, end = 0;
  if (sWholeUnits(start, length, 2 << 20, first, end))
    madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
}

// A file this long is read by ranges on every core: on one thread, faulting in the fresh
// memory took longer than the rest of the reading.
static std::size_t const S_rangesFrom = 8 << 20;
static std::size_t const S_range = 2 << 20;

// Each range's pages made present on the thread of the range, by a write to each page.
// A fault locks only this mapping; asking the system to populate the range instead holds
// the lock of the whole address space meanwhile, and a thread starting or a heap growing
// elsewhere (the volume read ahead) waited for it.
static void sPopulate(char* start, std::size_t length) {
  std::size_t const S_page = 4096;
  std::uintptr_t first = 0, end = 0;
  if (!sWholeUnits(start, length, S_page, first, end)) return;
  QRTForEachRange("read whole", (end - first + S_range - 1) / S_range, 1, [first, end](size_t at, size_t stop) {
    std::uintptr_t to = std::min<std::uintptr_t>(end, first + stop * S_range);
    for (std::uintptr_t page = first + at * S_range; page < to; page += S_page) {
      *reinterpret_cast<char volatile*>(page) = 0;
    }
  });
}

// Reads [0, size) of the file into `data` by ranges: 0, an errno, or EAGAIN where the
// file ended before `size`.
static int sReadRanges(int fd, char* data, std::size_t size) {
  std::atomic<int> failed{0};
  QRTForEachRange("read whole", (size + S_range - 1) / S_range, 1, [&](size_t range, size_t stop) {
    std::size_t at = range * S_range;
    std::size_t end = std::min(size, stop * S_range);
    while (at < end && failed.load(std::memory_order_relaxed) == 0) {
      ssize_t got = pread(fd, data + at, end - at, static_cast<off_t>(at));
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) {
        int none = 0;
        failed.compare_exchange_strong(none, got < 0 ? errno : EAGAIN);
        return;
      }
      at += static_cast<std::size_t>(got);
    }
  });
  return failed.load();
}

static int sRead(int fd, std::size_t limit, std::string& bytes, struct stat& status) {
  struct stat before;
  if (fstat(fd, &before) != 0) return errno;
  if (!S_ISREG(before.st_mode)) return EINVAL;
  if (static_cast<unsigned long long>(before.st_size) > limit) return EFBIG;
  std::size_t size = static_cast<std::size_t>(before.st_size);
  bytes.clear();
  bytes.reserve(size);
  sPreferHugePages(&bytes[0], bytes.capacity());
  if (size >= S_rangesFrom) sPopulate(&bytes[0], bytes.capacity());
  // The size seen is read straight into place; whatever follows it, a file that grew,
  // is read on below, for the state compared at the end to refuse.
  bytes.resize(size);
  std::size_t done = 0;
  if (size >= S_rangesFrom) {
    int failed = sReadRanges(fd, &bytes[0], size);
    if (failed != 0) return failed;
    done = size;
    if (lseek(fd, static_cast<off_t>(size), SEEK_SET) < 0) return errno;
  }
  while (done < size) {
    ssize_t got = read(fd, &bytes[done], size - done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  bytes.resize(done);
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
