// ZYNSysSemaphoreVarCntImpl.cpp - a counted semaphore whose maximum can change.
#include "ZYNSysSemaphoreVarCntImpl.h"

#include <climits>
#include <cstdlib>

#include "PZYNSysSem.h"
#include "ZYNResult.h"

ZYNSysSemaphoreVarCntImpl::ZYNSysSemaphoreVarCntImpl() : _waiters(0), _inner(nullptr), _count(0), _mutex(0, 1, 0) {}

ZYNSysSemaphoreVarCntImpl::~ZYNSysSemaphoreVarCntImpl() {
  if (_inner != nullptr) _inner->Release();
  _inner = nullptr;
}

static PZYNSysSem* sMakeInner(int maxCount, int count) {
  PZYNSysSem* inner = new PZYNSysSem(maxCount, count);
  if (inner->_Create() == 0) return inner;
  inner->Release();
  return nullptr;
}

int ZYNSysSemaphoreVarCntImpl::_Create(int maxCount, int initialCount) {
  _inner = sMakeInner(maxCount, initialCount);
  if (_inner == nullptr) return ZYN_E_FAIL;
  _count = initialCount;
  return 0;
}

int ZYNSysSemaphoreVarCntImpl::Wait() { return TimedWait(-1); }

// Each round's limit is what is left after the time since the previous round's GetTime,
// not since the start: a wait that is woken by a replacement starts its count afresh.
int ZYNSysSemaphoreVarCntImpl::TimedWait(int timeoutMs) {
  bool limited = timeoutMs != -1;
  if (limited) {
    _mutex.Lock();
    _timer.GetTime(nullptr, nullptr);
    _mutex.Unlock();
  }
  int result = ZYN_E_FAIL;
  for (;;) {
    _mutex.Lock();
    PZYNSysSem* inner = _inner;
    if (inner == nullptr) {
      _mutex.Unlock();
      return result;
    }
    inner->AddRef();
    _waiters++;
    long long elapsedMicros = 0;
    if (limited) _timer.GetTime(&elapsedMicros, nullptr);
    _mutex.Unlock();

    if (limited) {
      long long left = timeoutMs - elapsedMicros / 1000;
      result = inner->TimedWait(left < 0 ? 0 : static_cast<int>(left));
    } else {
      result = inner->Wait();
    }
    if (result == ZYN_E_FAIL || result == 1) {
      inner->Release();
      return result;
    }

    bool ended = false;
    _mutex.Lock();
    if (_count > 0) {
      _count--;
      if (_inner == inner) _waiters--;
      ended = true;
    }
    _mutex.Unlock();
    inner->Release();
    if (ended) return result;
  }
}

int ZYNSysSemaphoreVarCntImpl::Signal() {
  _mutex.Lock();
  int maxCount = 0;
  if (_inner == nullptr || _inner->GetMaxCount(maxCount) != 0 || _count >= maxCount) {
    _mutex.Unlock();
    return ZYN_E_FAIL;
  }
  _count++;
  int result = _inner->Signal();
  _mutex.Unlock();
  return result;
}

int ZYNSysSemaphoreVarCntImpl::GetMaxCount(int& maxCount) const {
  _mutex.Lock();
  int result = _inner != nullptr ? _inner->GetMaxCount(maxCount) : ZYN_E_FAIL;
  _mutex.Unlock();
  return result;
}

int ZYNSysSemaphoreVarCntImpl::GetCurrentCount(int& count) const {
  _mutex.Lock();
  count = _count;
  _mutex.Unlock();
  return 0;
}

int ZYNSysSemaphoreVarCntImpl::IncreaseCount(int delta, int count) {
  if (delta < 1) return ZYN_E_FAIL;
  return ModifyCount(delta, count);
}

int ZYNSysSemaphoreVarCntImpl::DecreaseCount(int delta) {
  if (delta >= 0) return ZYN_E_FAIL;
  return ModifyCount(delta, 0);
}

// The new limits, or false when they leave the range.
static bool sNewLimits(int delta, int count, int maxCount, int current, long long& newMax, long long& newCount) {
  newMax = static_cast<long long>(maxCount) + delta;
  if (delta > 0) {
    newCount = static_cast<long long>(current) + count;
    return newMax <= INT_MAX && newCount <= INT_MAX && newCount >= 0;
  }
  newCount = static_cast<long long>(current) + delta;
  return newMax >= 1 && newCount >= 0;
}

int ZYNSysSemaphoreVarCntImpl::ModifyCount(int delta, int count) {
  if (delta == INT_MIN || llabs(static_cast<long long>(count)) > llabs(static_cast<long long>(delta))) {
    return ZYN_E_FAIL;
  }
  if (delta == 0) return 1;
  _mutex.Lock();
  int maxCount = 0;
  long long newMax = 0;
  long long newCount = 0;
  PZYNSysSem* fresh = nullptr;
  if (_inner != nullptr && _inner->GetMaxCount(maxCount) == 0 &&
      sNewLimits(delta, count, maxCount, _count, newMax, newCount)) {
    fresh = sMakeInner(static_cast<int>(newMax), static_cast<int>(newCount));
  }
  if (fresh == nullptr) {
    _mutex.Unlock();
    return ZYN_E_FAIL;
  }
  PZYNSysSem* old = _inner;
  int waiters = _waiters;
  _inner = fresh;
  _waiters = 0;
  _count = static_cast<int32_t>(newCount);
  // Each waiter of the old semaphore wakes once and finds the new one.
  for (int i = 0; i < waiters; i++) old->Signal();
  old->Release();
  _mutex.Unlock();
  return 0;
}
