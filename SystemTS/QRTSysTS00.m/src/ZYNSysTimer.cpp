// ZYNSysTimer.cpp - the timer: elapsed and process times.
#include "ZYNSysTimer.h"

ZYNSysTimer::ZYNSysTimer()
    : _elpScale(1.0),
      _cpuScale(1.0),
      _lastElpDelta(0),
      _lastCpuDelta(0),
      _startElp(0),
      _startCpu(0),
      _currentElp(0),
      _currentCpu(0),
      _previousElp(0),
      _previousCpu(0),
      _timeOfDay(),
      _usage() {
  InitalizeElpTimes();
  InitalizeCpuTimes();
}

ZYNSysTimer::~ZYNSysTimer() {}

void ZYNSysTimer::InitalizeElpTimes() {
  _startElp = GetElpTimeInternal();
  _previousElp = _startElp;
}

void ZYNSysTimer::InitalizeCpuTimes() {
  _startCpu = GetCpuTimeInternal();
  _previousCpu = _startCpu;
}

long long ZYNSysTimer::GetElpTimeInternal() {
  if (ZYNSysTimerGetTimeOfDay(&_timeOfDay, nullptr) == 0) {
    _currentElp = static_cast<long long>(_timeOfDay.tv_sec) * 1000000LL + _timeOfDay.tv_usec;
  }
  return _currentElp;
}

long long ZYNSysTimer::GetCpuTimeInternal() {
  if (getrusage(RUSAGE_SELF, &_usage) == 0) {
    long long user = static_cast<long long>(_usage.ru_utime.tv_sec) * 1000000LL + _usage.ru_utime.tv_usec;
    long long system = static_cast<long long>(_usage.ru_stime.tv_sec) * 1000000LL + _usage.ru_stime.tv_usec;
    _currentCpu = user + system;
  }
  return _currentCpu;
}

void ZYNSysTimer::GetTime(long long* elapsed, long long* cpu) {
  long long nowElp = GetElpTimeInternal();
  long long nowCpu = GetCpuTimeInternal();
  _lastElpDelta = static_cast<double>(nowElp - _previousElp) * _elpScale;
  _lastCpuDelta = static_cast<double>(nowCpu - _previousCpu) * _cpuScale;
  if (elapsed != nullptr) *elapsed = static_cast<long long>(_lastElpDelta);
  if (cpu != nullptr) *cpu = static_cast<long long>(_lastCpuDelta);
  _previousElp = nowElp;
  _previousCpu = nowCpu;
}

void ZYNSysTimerConvert(long long microseconds, unsigned int* parts) {
  if (parts == nullptr) return;
  static const long long kUnits[] = {3600000000LL, 60000000LL, 1000000LL, 1000LL};
  long long rest = microseconds;
  for (int i = 0; i < 4; i++) {
    parts[i] = static_cast<unsigned int>(rest / kUnits[i]);
    rest %= kUnits[i];
  }
  parts[4] = static_cast<unsigned int>(rest);
}

int ZYNSysTimerGetTimeOfDay(timeval* now, void*) { return gettimeofday(now, nullptr); }
