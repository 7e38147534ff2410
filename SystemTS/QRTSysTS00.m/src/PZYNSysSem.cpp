// PZYNSysSem.cpp - the kernel semaphore behind the counted semaphores.
#include "PZYNSysSem.h"

PZYNSysSem::PZYNSysSem(int maxCount, int initialCount) : ZYNSysSemaphoreImpl(maxCount, initialCount), _references(1) {}

PZYNSysSem::~PZYNSysSem() {}

int PZYNSysSem::AddRef() { return _references.fetch_add(1, std::memory_order_relaxed) + 1; }

int PZYNSysSem::Release() {
  int left = _references.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (left == 0) delete this;
  return left;
}
