// ZYNInsSerialShare.cpp - CPU time of the first thread against the whole process at exit.
#include "ZYNInsSerialShare.h"

#include <sys/resource.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

static bool S_enabled = false;
static std::atomic<long long> S_shareable{0};

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
  std::fprintf(stderr, "order kept: %.3f s (%.1f%%), besides %.3f s of digests taken from the queue\n", own,
               total > 0 ? 100.0 * own / total : 0.0, shareable);
}

bool ZYNInsSerialShare::IsEnabled() { return S_enabled; }

void ZYNInsSerialShare::AddShareable(long long nanoseconds) { S_shareable.fetch_add(nanoseconds); }

void ZYNInsSerialShare::EnableFromEnvironment() {
  char const* value = std::getenv("ZYN_SERIAL_SHARE");
  if (value == nullptr || *value == '\0') return;
  S_enabled = true;
  std::atexit(sReport);
}
