#include "ZYNSysLifeCycleDynamicLoadManager.h"

ZYNSysLifeCycleDynamicLoadManager::ZYNSysLifeCycleDynamicLoadManager() : _mutex(0, 1, 0) {}

ZYNSysLifeCycleDynamicLoadManager::~ZYNSysLifeCycleDynamicLoadManager() {}
