#ifndef ZYN_SYSTEMTS_QRTRESOURCELOCKIMPLITF_H
#define ZYN_SYSTEMTS_QRTRESOURCELOCKIMPLITF_H

// The readers-writer interface behind a QRTResourceLock.
class QRTResourceLockImplItf {
 public:
  virtual ~QRTResourceLockImplItf() {}
  virtual void ReadLock() = 0;
  virtual void ReadUnlock() = 0;
  virtual void WriteLock() = 0;
  virtual void WriteUnlock() = 0;
};

#endif
