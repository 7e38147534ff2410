// ZYNSysLifeCycleManager.cpp - the life-cycle manager of the process.
#include "ZYNSysLifeCycleManager.h"

ZYNSysLifeCycleManager* ZYNSysLifeCycleManager::S_pSingletonPtr = nullptr;

ZYNSysLifeCycleManager::ZYNSysLifeCycleManager() {}

ZYNSysLifeCycleManager::~ZYNSysLifeCycleManager() {}
