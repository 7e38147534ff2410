#ifndef ZYN_TESTS_SYSTEMTS_QRTSYSCHILDPROCESS_H
#define ZYN_TESTS_SYSTEMTS_QRTSYSCHILDPROCESS_H

// Runs one test of this binary again in a child process with extra environment, for the
// switches the system layer reads once per process. A child's test runs only when
// ZYN_SYS_CHILD is set, and skips otherwise.

#include <cstdlib>
#include <string>
#include <vector>

#include "support/ChildProcess.h"

inline bool QRTSysIsChild() { return getenv("ZYN_SYS_CHILD") != nullptr; }

// The switches under test start unset. A detached thread may still be leaving when a
// child exits: ThreadSanitizer needn't sleep a second for it.
// `firstCpuOnly` runs it on the first processor alone.
inline ChildResult QRTSysRunChild(std::string const& test, std::vector<std::string> const& env,
                                  bool firstCpuOnly = false) {
  char const* tsan = getenv("TSAN_OPTIONS");
  std::vector<std::string> all = {
      "QRTThrDebug",     "QRTThrDebug_Host",
      "QRTSocketDebug",  "QRTSysMultiThreading",
      "ZYN_SYS_CHILD=1", std::string("TSAN_OPTIONS=") + (tsan != nullptr ? tsan : "") + " atexit_sleep_ms=0"};
  all.insert(all.end(), env.begin(), env.end());
  std::vector<std::string> argv = {SelfExecutable(), "--gtest_filter=" + test};
  if (firstCpuOnly) argv.insert(argv.begin(), {"/usr/bin/taskset", "-c", "0"});
  return RunChild(argv, all);
}

#endif
