// ZYNSysSemaphoreImpl.cpp - a counted semaphore with a fixed maximum.
#include "ZYNSysSemaphoreImpl.h"

#include "ZYNResult.h"

ZYNSysSemaphoreImpl::ZYNSysSemaphoreImpl(int maxCount, int initialCount)
    : _task(ZYNSysKernelSemaphore::TaskSelf()),
      _semaphore(nullptr),
      _ownsSemaphore(0),
      _count(initialCount),
      _maxCount(maxCount) {}

// Only an owned kernel semaphore is destroyed, and nothing sets the flag. Here the
// semaphore is process memory rather than a port, so an unowned one is still given back.
ZYNSysSemaphoreImpl::~ZYNSysSemaphoreImpl() {
  if (_semaphore == nullptr) return;
  if (_ownsSemaphore != 0) {
    ZYNSysKernelSemaphore::Destroy(_task, _semaphore);
  } else {
    ZYNSysKernelSemaphore::Release(_semaphore);
  }
  _semaphore = nullptr;
}

int ZYNSysSemaphoreImpl::_Create() { return ZYNSysKernelSemaphore::Create(_task, &_semaphore, 0, _count.load()); }

static int sKernelResult(int result) {
  if (result > 0) return ZYNResultFromErrno(result);
  return result;
}

int ZYNSysSemaphoreImpl::Wait() {
  int result = ZYNSysKernelSemaphore::Wait(_semaphore);
  if (result != 0) return sKernelResult(result);
  _count.fetch_sub(1);
  return 0;
}

int ZYNSysSemaphoreImpl::TimedWait(int timeoutMs) {
  if (timeoutMs < 0) timeoutMs = 0;
  int result = ZYNSysKernelSemaphore::TimedWait(_semaphore, static_cast<unsigned int>(timeoutMs / 1000),
                                                (timeoutMs % 1000) * 1000);
  if (result == ZYNSysKernelSemaphore::kTimedOut) return 1;
  if (result != 0) return sKernelResult(result);
  _count.fetch_sub(1);
  return 0;
}

int ZYNSysSemaphoreImpl::Signal() {
  int count = _count.fetch_add(1) + 1;
  if (count >= 0 && count <= _maxCount) return sKernelResult(ZYNSysKernelSemaphore::Signal(_semaphore));
  _count.fetch_sub(1);
  return ZYN_E_FAIL;
}

int ZYNSysSemaphoreImpl::GetMaxCount(int& maxCount) const {
  maxCount = _maxCount;
  return 0;
}
