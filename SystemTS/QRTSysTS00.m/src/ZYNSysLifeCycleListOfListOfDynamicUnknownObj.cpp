// ZYNSysLifeCycleListOfListOfDynamicUnknownObj.cpp - the life-cycle manager's lists of unknown objects, by library.
#include "ZYNSysLifeCycleListOfListOfDynamicUnknownObj.h"

#include "ZYNSysLifeCycleListOfDynamicObj.h"

ZYNSysLifeCycleListOfListOfDynamicUnknownObj::ZYNSysLifeCycleListOfListOfDynamicUnknownObj()
    : ZYNSysList(ZYNSysListQueue, true) {}

ZYNSysLifeCycleListOfListOfDynamicUnknownObj::~ZYNSysLifeCycleListOfListOfDynamicUnknownObj() { removeall(); }

void* ZYNSysLifeCycleListOfListOfDynamicUnknownObj::ChildCopyItem(void const*) const {
  return new ZYNSysLifeCycleListOfDynamicObj();
}

void ZYNSysLifeCycleListOfListOfDynamicUnknownObj::ChildDeleteItem(void* item) const {
  delete static_cast<ZYNSysLifeCycleListOfDynamicObj*>(item);
}

int ZYNSysLifeCycleListOfListOfDynamicUnknownObj::ChildCompareItem(void const* left, void const* right) const {
  return left == right ? 0 : 1;
}
