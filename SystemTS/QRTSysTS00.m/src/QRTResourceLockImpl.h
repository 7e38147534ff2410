#ifndef ZYN_SYSTEMTS_QRTRESOURCELOCKIMPL_H
#define ZYN_SYSTEMTS_QRTRESOURCELOCKIMPL_H

#include <cstdint>

#include "QRTMutex.h"
#include "QRTResourceLockImplItf.h"
#include "QRTWaitingPoint.h"

// Readers count themselves under the mutex; a writer holds the mutex for as long as it
// writes, which keeps new readers and writers out. Writers get no priority.
class QRTResourceLockImpl : public QRTResourceLockImplItf {
 public:
  QRTResourceLockImpl();
  ~QRTResourceLockImpl() override;

  void ReadLock() override;
  void ReadUnlock() override;
  void WriteLock() override;
  void WriteUnlock() override;

 private:
  QRTResourceLockImpl(QRTResourceLockImpl const&) = delete;
  QRTResourceLockImpl& operator=(QRTResourceLockImpl const&) = delete;

  QRTMutex _mutex;
  QRTWaitingPoint _noReaders;
  int32_t _readers;
};

#endif
