#ifndef ZYN_SYSTEMTS_ZYNSYSSEMAPHOREVARCNTIMPL_H
#define ZYN_SYSTEMTS_ZYNSYSSEMAPHOREVARCNTIMPL_H

#include <cstdint>

#include "QRTMutex.h"
#include "ZYNSysSemaphore.h"
#include "ZYNSysTimer.h"

class PZYNSysSem;

// The semaphore whose maximum can change. A change replaces the inner semaphore and
// wakes every waiter of the old one, who then waits on the new one.
class ZYNSysSemaphoreVarCntImpl : public ZYNSysSemaphore {
 public:
  ZYNSysSemaphoreVarCntImpl();
  ~ZYNSysSemaphoreVarCntImpl() override;

  // Makes the first inner semaphore: 0, or 0x80004005.
  int _Create(int maxCount, int initialCount);

  int Wait() override;
  int TimedWait(int timeoutMs) override;
  int Signal() override;
  int GetMaxCount(int& maxCount) const override;
  // Raises the maximum by `delta` (at least 1) and the count by `count`.
  int IncreaseCount(int delta, int count) override;
  // Lowers maximum and count by the size of `delta` (below 0).
  int DecreaseCount(int delta) override;
  int GetCurrentCount(int& count) const override;

 private:
  ZYNSysSemaphoreVarCntImpl(ZYNSysSemaphoreVarCntImpl const&) = delete;
  ZYNSysSemaphoreVarCntImpl& operator=(ZYNSysSemaphoreVarCntImpl const&) = delete;

  int ModifyCount(int delta, int count);

  int32_t _waiters;
  PZYNSysSem* _inner;
  int32_t _count;
  mutable QRTMutex _mutex;
  // Shared by all waiters, and so read and moved under the mutex.
  ZYNSysTimer _timer;
};

#endif
