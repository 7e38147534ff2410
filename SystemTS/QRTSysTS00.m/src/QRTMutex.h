#ifndef ZYN_SYSTEMTS_QRTMUTEX_H
#define ZYN_SYSTEMTS_QRTMUTEX_H

#include <atomic>

class QRTMutexRealData;

// A handle of one pointer on a real mutex. A deferred mutex has no body until its first
// Lock or TryLock, so static mutexes cost nothing at start-up. The pointer is atomic
// because racing first callers read it before taking _mutexGlobal.
class QRTMutex {
 public:
  QRTMutex(int lockNow, int recursive, int deferred);
  ~QRTMutex();

  // The POSIX result; a missing body is made first, always recursive.
  int Lock();
  // A mutex with no body is left alone.
  int Unlock();
  // 0 when taken; 1 when taken elsewhere or when no body could be made.
  int TryLock();

  int _Initialize(int useGlobal, int recursive);

  // The calls made on _mutexGlobal go through these.
  static int (QRTMutex::*LockF)();
  static int (QRTMutex::*UnlockF)();
  static int (QRTMutex::*TryLockF)();

  // Guards the late creation of the bodies of other mutexes.
  static QRTMutex _mutexGlobal;

 private:
  struct StaticTag {};
  // Constant-initialised, so a mutex used by an earlier static constructor isn't reset.
  constexpr explicit QRTMutex(StaticTag) : _p(nullptr) {}
  QRTMutex(QRTMutex const&) = delete;
  QRTMutex& operator=(QRTMutex const&) = delete;

  std::atomic<QRTMutexRealData*> _p;
};

#endif
