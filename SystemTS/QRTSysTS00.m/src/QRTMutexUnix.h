#ifndef ZYN_SYSTEMTS_QRTMUTEXUNIX_H
#define ZYN_SYSTEMTS_QRTMUTEXUNIX_H

#include <pthread.h>

#include "QRTMutexRealData.h"

// A POSIX mutex. Recursive ones share one attribute object that is never destroyed.
class QRTMutexUnix : public QRTMutexRealData {
 public:
  explicit QRTMutexUnix(int recursive);
  ~QRTMutexUnix() override;

  int Lock() override;
  int Unlock() override;
  // 0 when the lock was taken, 1 otherwise.
  int TryLock() override;

  // Set on the first construction when thread tracing is on.
  static int _debugMode;

 private:
  QRTMutexUnix(QRTMutexUnix const&) = delete;
  QRTMutexUnix& operator=(QRTMutexUnix const&) = delete;

  pthread_mutex_t _mutex;
};

#endif
