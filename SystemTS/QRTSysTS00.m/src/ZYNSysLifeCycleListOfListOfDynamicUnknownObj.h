#ifndef ZYN_SYSTEMTS_ZYNSYSLIFECYCLELISTOFLISTOFDYNAMICUNKNOWNOBJ_H
#define ZYN_SYSTEMTS_ZYNSYSLIFECYCLELISTOFLISTOFDYNAMICUNKNOWNOBJ_H

#include "ZYNSysList.h"

// The dynamic libraries known to the manager. Adding anything adds a new, empty library
// record; records compare by identity.
class ZYNSysLifeCycleListOfListOfDynamicUnknownObj : public ZYNSysList {
 public:
  ZYNSysLifeCycleListOfListOfDynamicUnknownObj();
  ~ZYNSysLifeCycleListOfListOfDynamicUnknownObj() override;

 protected:
  void* ChildCopyItem(void const* item) const override;
  void ChildDeleteItem(void* item) const override;
  int ChildCompareItem(void const* left, void const* right) const override;

 private:
  ZYNSysLifeCycleListOfListOfDynamicUnknownObj(ZYNSysLifeCycleListOfListOfDynamicUnknownObj const&) = delete;
  ZYNSysLifeCycleListOfListOfDynamicUnknownObj& operator=(ZYNSysLifeCycleListOfListOfDynamicUnknownObj const&) = delete;
};

#endif
