#ifndef ZYN_SYSTEMTS_QRTMUTEXREALDATA_H
#define ZYN_SYSTEMTS_QRTMUTEXREALDATA_H

// The body behind a QRTMutex handle.
class QRTMutexRealData {
 public:
  virtual ~QRTMutexRealData() {}
  virtual int Lock() = 0;
  virtual int Unlock() = 0;
  virtual int TryLock() = 0;
};

#endif
