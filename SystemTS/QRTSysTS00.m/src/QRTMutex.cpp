// QRTMutex.cpp - the mutex handle, its deferred body and the global mutex.
#include "QRTMutex.h"

#include "QRTMutexUnix.h"
#include "ZYNResult.h"

// Constant-initialised: they hold their values before any static constructor runs, which
// is what filling them on the first construction achieves.
int (QRTMutex::*QRTMutex::LockF)() = &QRTMutex::Lock;
int (QRTMutex::*QRTMutex::UnlockF)() = &QRTMutex::Unlock;
int (QRTMutex::*QRTMutex::TryLockF)() = &QRTMutex::TryLock;

QRTMutex QRTMutex::_mutexGlobal{QRTMutex::StaticTag()};

// Gives _mutexGlobal its recursive body, unless an earlier static constructor's Lock did.
static int sMakeGlobalBody() { return QRTMutex::_mutexGlobal._Initialize(0, 1); }
[[maybe_unused]] static int S_globalBodyMade = sMakeGlobalBody();

QRTMutex::QRTMutex(int lockNow, int recursive, int deferred) : _p(nullptr) {
  if (deferred != 0) return;
  QRTMutexRealData* body = new QRTMutexUnix(recursive);
  _p.store(body, std::memory_order_release);
  if (lockNow != 0) body->Lock();
}

QRTMutex::~QRTMutex() { delete _p.exchange(nullptr, std::memory_order_acq_rel); }

int QRTMutex::_Initialize(int useGlobal, int recursive) {
  bool viaGlobal = useGlobal != 0 && this != &_mutexGlobal;
  if (viaGlobal) (_mutexGlobal.*LockF)();
  if (_p.load(std::memory_order_acquire) == nullptr) {
    // The exchange keeps _mutexGlobal itself, which can't lock anything, to one body.
    QRTMutexRealData* body = new QRTMutexUnix(recursive);
    QRTMutexRealData* expected = nullptr;
    if (!_p.compare_exchange_strong(expected, body, std::memory_order_acq_rel)) delete body;
  }
  if (viaGlobal) (_mutexGlobal.*UnlockF)();
  return _p.load(std::memory_order_acquire) != nullptr ? 0 : ZYN_E_FAIL;
}

int QRTMutex::Lock() {
  QRTMutexRealData* body = _p.load(std::memory_order_acquire);
  if (body == nullptr) {
    int result = _Initialize(1, 1);
    body = _p.load(std::memory_order_acquire);
    if (body == nullptr) return result;
  }
  return body->Lock();
}

int QRTMutex::Unlock() {
  QRTMutexRealData* body = _p.load(std::memory_order_acquire);
  if (body == nullptr) return 0;
  return body->Unlock();
}

int QRTMutex::TryLock() {
  QRTMutexRealData* body = _p.load(std::memory_order_acquire);
  if (body == nullptr) {
    _Initialize(1, 1);
    body = _p.load(std::memory_order_acquire);
    if (body == nullptr) return 1;
  }
  return body->TryLock();
}
