#ifndef ZYN_SYSTEMTS_ZYNSYSSEMAPHOREIMPL_H
#define ZYN_SYSTEMTS_ZYNSYSSEMAPHOREIMPL_H

#include <atomic>
#include <cstdint>

#include "ZYNSysKernelSemaphore.h"
#include "ZYNSysSemaphore.h"

// The semaphore with a fixed maximum, over one kernel semaphore.
class ZYNSysSemaphoreImpl : public ZYNSysSemaphore {
 public:
  ZYNSysSemaphoreImpl(int maxCount, int initialCount);
  ~ZYNSysSemaphoreImpl() override;

  // Makes the kernel semaphore: 0, or the kernel's result.
  int _Create();

  int Wait() override;
  // The part of the limit below one second reaches the kernel as nanoseconds that hold
  // microseconds, so it counts a thousand times too short. Callers rely on it as it is.
  int TimedWait(int timeoutMs) override;
  // Fails with 0x80004005 and changes nothing at the maximum count.
  int Signal() override;
  int GetMaxCount(int& maxCount) const override;

 private:
  ZYNSysSemaphoreImpl(ZYNSysSemaphoreImpl const&) = delete;
  ZYNSysSemaphoreImpl& operator=(ZYNSysSemaphoreImpl const&) = delete;

  int _task;
  ZYNSysKernelSemaphore::Handle _semaphore;
  int32_t _ownsSemaphore;  // nothing sets it
  std::atomic<int32_t> _count;
  int32_t _maxCount;
};

#endif
