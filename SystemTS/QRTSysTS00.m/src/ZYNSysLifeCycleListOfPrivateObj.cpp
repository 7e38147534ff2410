// ZYNSysLifeCycleListOfPrivateObj.cpp - the life-cycle manager's list of the process's own objects.
#include "ZYNSysLifeCycleListOfPrivateObj.h"

#include "ZYNSysLifeCycle.h"

ZYNSysLifeCycleListOfPrivateObj::ZYNSysLifeCycleListOfPrivateObj() : ZYNSysList(ZYNSysListSortedQueue, false) {}

ZYNSysLifeCycleListOfPrivateObj::ZYNSysLifeCycleListOfPrivateObj(ZYNSysLifeCycleListOfPrivateObj const& other)
    : ZYNSysList(other) {
  copylist(other);
}

ZYNSysLifeCycleListOfPrivateObj::~ZYNSysLifeCycleListOfPrivateObj() { removeall(); }

void* ZYNSysLifeCycleListOfPrivateObj::ChildCopyItem(void const* item) const {
  if (item == nullptr) return nullptr;
  return new ZYNSysLifeCycleStruct(*static_cast<ZYNSysLifeCycleStruct const*>(item));
}

void ZYNSysLifeCycleListOfPrivateObj::ChildDeleteItem(void* item) const {
  delete static_cast<ZYNSysLifeCycleStruct*>(item);
}

int ZYNSysLifeCycleListOfPrivateObj::ChildCompareItem(void const* left, void const* right) const {
  ZYNSysLifeCycleStruct const* first = static_cast<ZYNSysLifeCycleStruct const*>(left);
  ZYNSysLifeCycleStruct const* second = static_cast<ZYNSysLifeCycleStruct const*>(right);
  if (first == nullptr || second == nullptr || first->constructor == second->constructor) return 0;
  return static_cast<int>(second->flag) - static_cast<int>(first->flag);
}
