#ifndef ZYN_SYSTEMTS_QRTRESOURCELOCK_H
#define ZYN_SYSTEMTS_QRTRESOURCELOCK_H

class QRTResourceLockImplItf;

// A readers-writer lock: a handle on a QRTResourceLockImpl made at construction.
class QRTResourceLock {
 public:
  explicit QRTResourceLock(unsigned char unused);
  ~QRTResourceLock();

  void ReadLock();
  void ReadUnlock();
  void WriteLock();
  void WriteUnlock();

 private:
  QRTResourceLock(QRTResourceLock const&) = delete;
  QRTResourceLock& operator=(QRTResourceLock const&) = delete;

  QRTResourceLockImplItf* _p;
};

#endif
