// QRTWaitingPoint.cpp - the waiting point, an event threads wait on until it is broadcast.
#include "QRTWaitingPoint.h"

#include <pthread.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdint>
#include <ctime>

#include "QRTThrTrace.h"
#include "QRTThreadsRecord.h"

struct QRTWaitingPointData {
  pthread_mutex_t mutex;
  pthread_cond_t condition;
  uint16_t toRelease;  // waiters at the last broadcast
  uint16_t released;   // waiters let go since then
  uint16_t waiters;    // threads now inside Wait
  uint16_t flags;
};

static const uint16_t kSignalled = 1;
static const uint16_t kAutoReset = 2;
static const uint16_t kBroadcasting = 4;

QRTWaitingPoint::QRTWaitingPoint(int autoReset, int notSignalled) : _data(new QRTWaitingPointData()) {
  thread_trace_init();
  pthread_mutex_init(&_data->mutex, nullptr);
  pthread_cond_init(&_data->condition, nullptr);
  if (autoReset != 0) _data->flags |= kAutoReset;
  if (notSignalled == 0) _data->flags |= kSignalled;
  if (QRTThrTraceIsOn()) {
    thread_trace("evt=crewp| wp=0x%x | dat=0x%x \n", QRTThrTraceAddr(this), QRTThrTraceAddr(_data));
  }
}

QRTWaitingPoint::~QRTWaitingPoint() {
  if (_data == nullptr) return;
  if (QRTThrTraceIsOn()) {
    thread_trace("evt=delwp | wp=0x%x | dat=0x%x \n", QRTThrTraceAddr(this), QRTThrTraceAddr(_data));
  }
  _data->toRelease = 0;
  _data->released = 0;
  _data->waiters = 0;
  pthread_mutex_destroy(&_data->mutex);
  pthread_cond_destroy(&_data->condition);
  delete _data;
  _data = nullptr;
}

int QRTWaitingPoint::Wait(int timeoutMs) {
  QRTWaitingPointData* data = _data;
  if (data == nullptr) return -1;
  if (timeoutMs == -1) return _WaitWithoutLimit(data);
  return _WaitWithLimit(data, timeoutMs);
}

// The end of a release round: the last of those let go closes it, and so does any
// waiter of an auto-reset point once the count is reached.
static void sEndReleaseRound(QRTWaitingPointData* data) {
  if (data->waiters != 0 && (data->flags & kAutoReset) == 0) return;
  data->flags &= static_cast<uint16_t>(~kBroadcasting);
  data->released = 0;
}

static void sEnterWait(QRTWaitingPointData* data) {
  if (data->waiters++ == 0) data->flags &= static_cast<uint16_t>(~kBroadcasting);
}

int QRTWaitingPoint::_WaitWithoutLimit(QRTWaitingPointData* data) {
  pthread_mutex_lock(&data->mutex);
  if ((data->flags & kSignalled) != 0) {
    pthread_mutex_unlock(&data->mutex);
    return 0;
  }
  if (QRTThrTraceIsOn()) thread_trace("evt=wait | wp=0x%x \n", QRTThrTraceAddr(this));
  QRTThreadsRecord* record = QRTSysMTCurrentRecord();
  QRTSysMTMarkBlocked(record, true);
  sEnterWait(data);
  while ((data->flags & kBroadcasting) == 0) pthread_cond_wait(&data->condition, &data->mutex);
  data->waiters--;
  data->released++;
  if (!(data->toRelease > data->released)) sEndReleaseRound(data);
  QRTSysMTMarkBlocked(record, false);
  if (QRTThrTraceIsOn()) thread_trace("evt=ewait | wp=0x%x \n", QRTThrTraceAddr(this));
  pthread_mutex_unlock(&data->mutex);
  return 0;
}

// The deadline is the time of day plus the limit. The milliseconds become microseconds
// in 32 bits, as they always have: limits above 2147483 ms wrap on this path.
static timespec sDeadline(int timeoutMs) {
  timeval now;
  gettimeofday(&now, nullptr);
  int32_t micros = static_cast<int32_t>(static_cast<uint32_t>(timeoutMs) * 1000u);
  long long totalMicros = static_cast<long long>(now.tv_usec) + micros;
  long long seconds = now.tv_sec + totalMicros / 1000000;
  long long nanos = (totalMicros % 1000000) * 1000;
  if (nanos < 0) {
    nanos += 1000000000LL;
    seconds -= 1;
  }
  timespec deadline;
  deadline.tv_sec = static_cast<time_t>(seconds);
  deadline.tv_nsec = static_cast<long>(nanos);
  return deadline;
}

static int sMillisUntil(timespec const& deadline) {
  timeval now;
  gettimeofday(&now, nullptr);
  long long micros =
      (static_cast<long long>(deadline.tv_sec) - now.tv_sec) * 1000000LL + deadline.tv_nsec / 1000 - now.tv_usec;
  return static_cast<int>(micros / 1000);
}

int QRTWaitingPoint::_WaitWithLimit(QRTWaitingPointData* data, int timeoutMs) {
  timespec deadline = sDeadline(timeoutMs);
  pthread_mutex_lock(&data->mutex);
  if ((data->flags & kSignalled) != 0) {
    pthread_mutex_unlock(&data->mutex);
    return 0;
  }
  if (QRTThrTraceIsOn()) {
    int check = sMillisUntil(deadline);
    thread_trace("evt=wait | wp=0x%x  | timeout=%d(check=%d ms = %d s %d ms)\n", QRTThrTraceAddr(this), timeoutMs,
                 check, check / 1000, check % 1000);
  }
  QRTThreadsRecord* record = QRTSysMTCurrentRecord();
  QRTSysMTMarkBlocked(record, true);
  sEnterWait(data);
  int result = 0;
  while ((data->flags & kBroadcasting) == 0) {
    if (pthread_cond_timedwait(&data->condition, &data->mutex, &deadline) == ETIMEDOUT) {
      result = -1;
      break;
    }
  }
  data->waiters--;
  if (result == 0) {
    data->released++;
    // Equality here, where the wait without limit tests "not above": kept apart on purpose.
    if (data->released == data->toRelease) sEndReleaseRound(data);
  }
  QRTSysMTMarkBlocked(record, false);
  if (QRTThrTraceIsOn()) thread_trace("evt=ewait| wp=0x%x \n", QRTThrTraceAddr(this));
  pthread_mutex_unlock(&data->mutex);
  return result;
}

int QRTWaitingPoint::Broadcast() {
  QRTWaitingPointData* data = _data;
  if (data == nullptr) return -1;
  if (QRTThrTraceIsOn()) thread_trace("evt=bcast | wp=0x%x \n", QRTThrTraceAddr(this));
  pthread_mutex_lock(&data->mutex);
  data->toRelease = data->waiters;
  data->released = 0;
  data->flags |= kSignalled | kBroadcasting;
  pthread_cond_broadcast(&data->condition);
  if ((data->flags & kAutoReset) != 0) data->flags &= static_cast<uint16_t>(~kSignalled);
  pthread_mutex_unlock(&data->mutex);
  return 0;
}

int QRTWaitingPoint::Reset() {
  QRTWaitingPointData* data = _data;
  if (data == nullptr) return -1;
  if (QRTThrTraceIsOn()) thread_trace("evt=reset | wp=0x%x \n", QRTThrTraceAddr(this));
  pthread_mutex_lock(&data->mutex);
  data->flags &= static_cast<uint16_t>(~kSignalled);
  pthread_mutex_unlock(&data->mutex);
  return 0;
}
