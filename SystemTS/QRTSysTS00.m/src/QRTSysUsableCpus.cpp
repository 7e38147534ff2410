// QRTSysUsableCpus.cpp - the processors a process may use, from its affinity mask and
// its control group's quota. In a container limited to 2 CPUs of a 64-CPU host, the
// count of online processors would start 64 workers for 2 CPUs' worth of time.
#include "QRTSysUsableCpus.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>

static int sAffinityCpus() {
  // The mask grows until it holds every processor the system may have.
  for (int size = 1024; size <= (1 << 20); size *= 2) {
    cpu_set_t* set = CPU_ALLOC(size);
    if (set == nullptr) break;
    size_t bytes = CPU_ALLOC_SIZE(size);
    CPU_ZERO_S(bytes, set);
    if (sched_getaffinity(0, bytes, set) == 0) {
      int count = CPU_COUNT_S(bytes, set);
      CPU_FREE(set);
      return count;
    }
    CPU_FREE(set);
  }
  long online = sysconf(_SC_NPROCESSORS_ONLN);
  return online < 1 ? 1 : static_cast<int>(std::min<long>(online, INT_MAX));
}

static bool sReadLine(std::string const& path, std::string& line) {
  std::ifstream file(path);
  return static_cast<bool>(std::getline(file, line));
}

int QRTSysQuotaCpus(std::string const& text, long long v1Period) {
  std::istringstream in(text);
  std::string quotaText;
  long long period = v1Period;
  if (!(in >> quotaText)) return 0;
  if (v1Period == 0 && !(in >> period)) return 0;
  char* end = nullptr;
  long long quota = std::strtoll(quotaText.c_str(), &end, 10);
  if (end == quotaText.c_str() || *end != '\0' || quota <= 0 || period <= 0) return 0;
  long long cpus = (quota + period - 1) / period;
  return static_cast<int>(std::min<long long>(cpus, INT_MAX));
}

// The group of the process for `controller` (empty for version 2), as /proc/self/cgroup
// names it; false where it has none there.
static bool sGroupOf(std::string const& controller, std::string& group) {
  std::ifstream file("/proc/self/cgroup");
  for (std::string line; std::getline(file, line);) {
    size_t first = line.find(':');
    size_t second = first == std::string::npos ? first : line.find(':', first + 1);
    if (second == std::string::npos) continue;
    std::string controllers = line.substr(first + 1, second - first - 1);
    bool match = controller.empty() ? controllers.empty()
                                    : ("," + controllers + ",").find("," + controller + ",") != std::string::npos;
    if (!match) continue;
    group = line.substr(second + 1);
    return true;
  }
  return false;
}

// The smallest quota of `group` and the groups above it under `mount`; 0 for none.
template <typename ReadQuota>
static int sSmallestQuota(std::string const& mount, std::string group, ReadQuota const& read) {
  int smallest = 0;
  for (;;) {
    int cpus = read(mount + (group == "/" ? "" : group));
    if (cpus > 0 && (smallest == 0 || cpus < smallest)) smallest = cpus;
    size_t slash = group.find_last_of('/');
    if (group.empty() || group == "/" || slash == std::string::npos) break;
    group = slash == 0 ? "/" : group.substr(0, slash);
  }
  return smallest;
}

static int sQuotaCpus() {
  std::string group;
  if (sGroupOf("", group)) {
    int cpus = sSmallestQuota("/sys/fs/cgroup", group, [](std::string const& dir) {
      std::string line;
      return sReadLine(dir + "/cpu.max", line) ? QRTSysQuotaCpus(line, 0) : 0;
    });
    if (cpus > 0) return cpus;
  }
  if (!sGroupOf("cpu", group)) return 0;
  for (char const* mount : {"/sys/fs/cgroup/cpu,cpuacct", "/sys/fs/cgroup/cpu"}) {
    int cpus = sSmallestQuota(mount, group, [](std::string const& dir) {
      std::string quota, period;
      if (!sReadLine(dir + "/cpu.cfs_quota_us", quota) || !sReadLine(dir + "/cpu.cfs_period_us", period)) return 0;
      return QRTSysQuotaCpus(quota, std::atoll(period.c_str()));
    });
    if (cpus > 0) return cpus;
  }
  return 0;
}

int QRTSysUsableCpus() {
  int cpus = std::max(sAffinityCpus(), 1);
  int quota = sQuotaCpus();
  return quota > 0 ? std::min(cpus, quota) : cpus;
}
