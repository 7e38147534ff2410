// ZYNInsSerialShare.cpp - CPU time of the first thread against the whole process at exit.
#include "ZYNInsSerialShare.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

static bool S_enabled = false;
static std::atomic<long long> S_shareable{0};
static long S_firstThread = 0;

static double sSeconds(struct rusage const& usage) {
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Runs on the thread that calls exit, the first one; the workers are joined by then and
// their time is in the process's.
static void sReport() {
  struct rusage self, all;
  if (getrusage(RUSAGE_THREAD, &self) != 0 || getrusage(RUSAGE_SELF, &all) != 0) return;
  double first = sSeconds(self), total = sSeconds(all);
  std::fprintf(stderr, "serial share: first thread %.3f s of %.3f s CPU (%.1f%%)\n", first, total,
               total > 0 ? 100.0 * first / total : 0.0);
  double shareable = static_cast<double>(S_shareable.load()) / 1e9;
  double own = first > shareable ? first - shareable : 0.0;
  std::fprintf(stderr,
               "order kept: %.3f s (%.1f%%), besides %.3f s of digests, listings and batches taken from the queues\n",
               own, total > 0 ? 100.0 * own / total : 0.0, shareable);
}

long long ZYNInsSerialShare::Start() {
  if (!S_enabled || syscall(SYS_gettid) != S_firstThread) return -1;
  struct timespec now;
  if (clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now) != 0) return -1;
  return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

void ZYNInsSerialShare::AddShareableSince(long long started) {
  if (started < 0) return;
  long long now = Start();
  if (now >= started) S_shareable.fetch_add(now - started);
}

void ZYNInsSerialShare::EnableFromEnvironment() {
  char const* value = std::getenv("ZYN_SERIAL_SHARE");
  if (value == nullptr || *value == '\0') return;
  S_enabled = true;
  S_firstThread = syscall(SYS_gettid);
  std::atexit(sReport);
}
