// ZYNSysSemaphore.cpp - counted semaphores: the factory.
#include "ZYNSysSemaphore.h"

#include "ZYNResult.h"
#include "ZYNSysSemaphoreImpl.h"
#include "ZYNSysSemaphoreVarCntImpl.h"

ZYNSysSemaphore::~ZYNSysSemaphore() {}

int ZYNSysSemaphore::IncreaseCount(int, int) { return ZYN_E_NOTIMPL; }

int ZYNSysSemaphore::DecreaseCount(int) { return ZYN_E_NOTIMPL; }

int ZYNSysSemaphore::GetCurrentCount(int&) const { return ZYN_E_NOTIMPL; }

ZYNSysSemaphore* ZYNSysSemaphore::ZYNSysCreateSemaphore(int maxCount, int initialCount, char kind) {
  if (initialCount < 0 || maxCount < -1) return nullptr;
  if (maxCount >= 0 && maxCount < initialCount) return nullptr;
  if (maxCount == -1) maxCount = 0x7FFFFFFF;
  if (kind == 0) {
    ZYNSysSemaphoreImpl* fixed = new ZYNSysSemaphoreImpl(maxCount, initialCount);
    if (fixed->_Create() == 0) return fixed;
    delete fixed;
    return nullptr;
  }
  if (kind == 1) {
    ZYNSysSemaphoreVarCntImpl* variable = new ZYNSysSemaphoreVarCntImpl();
    if (variable->_Create(maxCount, initialCount) == 0) return variable;
    delete variable;
    return nullptr;
  }
  return nullptr;
}
