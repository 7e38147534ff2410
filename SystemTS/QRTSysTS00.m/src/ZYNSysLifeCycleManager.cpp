#include "ZYNSysLifeCycleManager.h"

ZYNSysLifeCycleManager* ZYNSysLifeCycleManager::S_pSingletonPtr = nullptr;

ZYNSysLifeCycleManager::ZYNSysLifeCycleManager() {}

ZYNSysLifeCycleManager::~ZYNSysLifeCycleManager() {}
