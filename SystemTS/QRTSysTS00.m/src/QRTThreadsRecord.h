#ifndef ZYN_SYSTEMTS_QRTTHREADSRECORD_H
#define ZYN_SYSTEMTS_QRTTHREADSRECORD_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

class QRTMutex;
class QRTThreads;
class QRTWaitingPoint;

// What a new thread is started with.
struct QRTThreadsStartArgs {
  int (*function)(void*);
  void* userArgument;
  QRTThreads* owner;
};

// The heap record behind a QRTThreads handle, zeroed at creation. The status is atomic
// because the locks and waits of its own thread flip the blocked bit without the
// record's mutex, which guards every other change of status and return code.
struct QRTThreadsRecord {
  static const int32_t kCreated = 1;
  static const int32_t kStartRequested = 2;
  static const int32_t kRunning = 4;
  static const int32_t kBlocked = 8;
  static const int32_t kEnded = 16;
  static const int32_t kJoinable = 32;
  static const int32_t kJoinRequested = 64;

  QRTThreads* owner;
  QRTThreadsStartArgs* startArgs;
  pthread_t threadId;
  std::atomic<int32_t> status;
  int32_t returnCode;
  QRTWaitingPoint* startPoint;
  QRTWaitingPoint* endPoint;  // only for a thread that isn't joinable
  pthread_attr_t attributes;
  int32_t waitCounter;  // kept by the resource lock under trace; nothing reads it
  QRTMutex* mutex;
  void* context;
};

// The record bound to the calling thread, or null.
QRTThreadsRecord* QRTSysMTCurrentRecord();

// Sets or clears the blocked bit of the calling thread's record, if it has one.
void QRTSysMTMarkBlocked(QRTThreadsRecord* record, bool blocked);

#endif
