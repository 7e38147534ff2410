// ZYNSysLifeCycleDynamicLoadManager.cpp - the life-cycle manager's loader of shared libraries, the handle.
#include "ZYNSysLifeCycleDynamicLoadManager.h"

ZYNSysLifeCycleDynamicLoadManager::ZYNSysLifeCycleDynamicLoadManager() : _mutex(0, 1, 0) {}

ZYNSysLifeCycleDynamicLoadManager::~ZYNSysLifeCycleDynamicLoadManager() {}
