#ifndef ZYN_SYSTEMTS_QRTSYSMTGLOBALMUTEX_H
#define ZYN_SYSTEMTS_QRTSYSMTGLOBALMUTEX_H

class QRTMutex;
class QRTResourceLock;

// Commands of QRTSysMTGlobalMutex.
enum {
  QRTSysMTGlobalMutexLock = 1,
  QRTSysMTGlobalMutexUnlock = 2,
  QRTSysMTGlobalMutexDestroy = 8,
};

// The process-wide recursive mutex. `name` must be null and `flag` 0. Lock gives 1,
// Unlock and Destroy 0, anything refused -1.
int QRTSysMTGlobalMutex(int command, char const* name, int flag);

// The process-wide mutex, made on first call; racing first callers get the same one.
QRTMutex* GetMyGlobalMutex();

// Mode 0 makes the object; mode 1 makes it once under the global mutex, safe against
// racing first callers; other modes do nothing.
void ZYNCreateMutex(QRTMutex*& mutex, unsigned int mode);
void ZYNCreateResourceLock(QRTResourceLock*& lock, unsigned int mode);

// A full, sequentially consistent memory barrier.
void ZYNMemoryBarrier();

#endif
