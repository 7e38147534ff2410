#ifndef ZYN_SYSTEMTS_ZYNSYSSEMAPHORE_H
#define ZYN_SYSTEMTS_ZYNSYSSEMAPHORE_H

// A counted semaphore, with a fixed maximum (kind 0) or one that can change (kind 1).
// Results: 0 success, 1 timeout, 0x80004005 failure, 0x8007xxxx a kernel error.
class ZYNSysSemaphore {
 public:
  virtual ~ZYNSysSemaphore();
  virtual int Wait() = 0;
  virtual int TimedWait(int timeoutMs) = 0;
  virtual int Signal() = 0;
  virtual int GetMaxCount(int& maxCount) const = 0;
  // Only the variable form has these; here they give 0x80004001.
  virtual int IncreaseCount(int delta, int count);
  virtual int DecreaseCount(int delta);
  virtual int GetCurrentCount(int& count) const;

  // Null for a negative initial count, a maximum below -1, an initial count above a
  // maximum, or an unknown kind. A maximum of -1 means 0x7FFFFFFF.
  static ZYNSysSemaphore* ZYNSysCreateSemaphore(int maxCount, int initialCount, char kind);
};

#endif
