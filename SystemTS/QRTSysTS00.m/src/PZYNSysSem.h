#ifndef ZYN_SYSTEMTS_PZYNSYSSEM_H
#define ZYN_SYSTEMTS_PZYNSYSSEM_H

#include <atomic>

#include "ZYNSysRefCountItf.h"
#include "ZYNSysSemaphoreImpl.h"

// The inner semaphore of the variable form. A waiter holds a reference across its wait,
// so a semaphore that was replaced lives until its last waiter has left.
class PZYNSysSem : public ZYNSysSemaphoreImpl, public ZYNSysRefCountItf {
 public:
  PZYNSysSem(int maxCount, int initialCount);

  int AddRef() override;
  int Release() override;

 private:
  ~PZYNSysSem() override;

  std::atomic<int> _references;
};

#endif
