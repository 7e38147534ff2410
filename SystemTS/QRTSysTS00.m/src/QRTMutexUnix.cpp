// QRTMutexUnix.cpp - the POSIX body of a mutex, plain or recursive.
#include "QRTMutexUnix.h"

#include "QRTThrTrace.h"
#include "QRTThreadsRecord.h"

int QRTMutexUnix::_debugMode = 0;

static pthread_once_t S_firstConstruction = PTHREAD_ONCE_INIT;
static pthread_once_t S_recursiveAttrOnce = PTHREAD_ONCE_INIT;
static pthread_mutexattr_t S_recursiveAttr;

static void sFirstConstruction() {
  thread_trace_init();
  int* on = QRTThrDebugOn.load(std::memory_order_acquire);
  if (on != nullptr && *on != 0) QRTMutexUnix::_debugMode = 1;
}

static void sMakeRecursiveAttr() {
  pthread_mutexattr_init(&S_recursiveAttr);
  pthread_mutexattr_settype(&S_recursiveAttr, PTHREAD_MUTEX_RECURSIVE);
}

QRTMutexUnix::QRTMutexUnix(int recursive) {
  pthread_once(&S_firstConstruction, sFirstConstruction);
  if (recursive == 0) {
    pthread_mutex_init(&_mutex, nullptr);
    return;
  }
  pthread_once(&S_recursiveAttrOnce, sMakeRecursiveAttr);
  pthread_mutex_init(&_mutex, &S_recursiveAttr);
}

QRTMutexUnix::~QRTMutexUnix() { pthread_mutex_destroy(&_mutex); }

int QRTMutexUnix::Lock() {
  QRTThreadsRecord* record = _debugMode != 0 ? QRTSysMTCurrentRecord() : nullptr;
  if (record == nullptr) return pthread_mutex_lock(&_mutex);
  QRTSysMTMarkBlocked(record, true);
  int result = pthread_mutex_lock(&_mutex);
  QRTSysMTMarkBlocked(record, false);
  return result;
}

int QRTMutexUnix::Unlock() { return pthread_mutex_unlock(&_mutex); }

int QRTMutexUnix::TryLock() { return pthread_mutex_trylock(&_mutex) == 0 ? 0 : 1; }
