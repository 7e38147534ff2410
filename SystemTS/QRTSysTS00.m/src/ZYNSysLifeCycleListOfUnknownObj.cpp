// ZYNSysLifeCycleListOfUnknownObj.cpp - the life-cycle manager's list of objects known by interface only.
#include "ZYNSysLifeCycleListOfUnknownObj.h"

#include "ZYNSysLifeCycle.h"

ZYNSysLifeCycleListOfUnknownObj::ZYNSysLifeCycleListOfUnknownObj(ZYNSysListType type, bool allowDuplicates)
    : ZYNSysList(type, allowDuplicates) {}

ZYNSysLifeCycleListOfUnknownObj::ZYNSysLifeCycleListOfUnknownObj(ZYNSysLifeCycleListOfUnknownObj const& other)
    : ZYNSysList(other) {
  copylist(other);
}

ZYNSysLifeCycleListOfUnknownObj::~ZYNSysLifeCycleListOfUnknownObj() { removeall(); }

void* ZYNSysLifeCycleListOfUnknownObj::ChildCopyItem(void const* item) const {
  if (item == nullptr) return nullptr;
  return new ZYNSysLifeCycleStruct(*static_cast<ZYNSysLifeCycleStruct const*>(item));
}

void ZYNSysLifeCycleListOfUnknownObj::ChildDeleteItem(void* item) const {
  delete static_cast<ZYNSysLifeCycleStruct*>(item);
}

int ZYNSysLifeCycleListOfUnknownObj::ChildCompareItem(void const* left, void const* right) const {
  ZYNSysLifeCycleStruct const* first = static_cast<ZYNSysLifeCycleStruct const*>(left);
  ZYNSysLifeCycleStruct const* second = static_cast<ZYNSysLifeCycleStruct const*>(right);
  if (first == nullptr || second == nullptr || first->constructor == second->constructor) return 0;
  return static_cast<int>(first->flag) - static_cast<int>(second->flag);
}
