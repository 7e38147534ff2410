#ifndef ZYN_SYSTEMTS_ZYNSYSTIMER_H
#define ZYN_SYSTEMTS_ZYNSYSTIMER_H

#include <sys/resource.h>
#include <sys/time.h>

// Elapsed time (time of day) and processor time (user plus system of this process), in
// microseconds. GetTime gives what passed since the previous GetTime.
class ZYNSysTimer {
 public:
  ZYNSysTimer();
  virtual ~ZYNSysTimer();

  void InitalizeElpTimes();
  void InitalizeCpuTimes();
  // A failing system call leaves the last value standing.
  long long GetElpTimeInternal();
  long long GetCpuTimeInternal();
  // Each non-null output gets now minus previous, scaled; previous moves to now for both.
  void GetTime(long long* elapsed, long long* cpu);

 private:
  double _elpScale;
  double _cpuScale;
  double _lastElpDelta;
  double _lastCpuDelta;
  long long _startElp;
  long long _startCpu;
  long long _currentElp;
  long long _currentCpu;
  long long _previousElp;
  long long _previousCpu;
  timeval _timeOfDay;
  rusage _usage;
};

// Hours, minutes, seconds, milliseconds and microseconds, in that order.
void ZYNSysTimerConvert(long long microseconds, unsigned int* parts);
int ZYNSysTimerGetTimeOfDay(timeval* now, void* zone);

#endif
