#ifndef ZYN_SYSTEMTS_ZYNSYSLIFECYCLEMANAGER_H
#define ZYN_SYSTEMTS_ZYNSYSLIFECYCLEMANAGER_H

#include "ZYNSysLifeCycleManagerBase.h"

// The process's manager: a heap singleton, published in s_pLifeCycleManager.
class ZYNSysLifeCycleManager : public ZYNSysLifeCycleManagerBase {
 public:
  ZYNSysLifeCycleManager();
  ~ZYNSysLifeCycleManager() override;

  static ZYNSysLifeCycleManager* S_pSingletonPtr;
};

#endif
