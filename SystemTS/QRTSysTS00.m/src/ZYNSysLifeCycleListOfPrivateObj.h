#ifndef ZYN_SYSTEMTS_ZYNSYSLIFECYCLELISTOFPRIVATEOBJ_H
#define ZYN_SYSTEMTS_ZYNSYSLIFECYCLELISTOFPRIVATEOBJ_H

#include "ZYNSysList.h"

// The manager's own registrations: sorted by rising flag, no duplicates. Equal flags
// compare equal, so the list holds one registration per flag.
class ZYNSysLifeCycleListOfPrivateObj : public ZYNSysList {
 public:
  ZYNSysLifeCycleListOfPrivateObj();
  ZYNSysLifeCycleListOfPrivateObj(ZYNSysLifeCycleListOfPrivateObj const& other);
  ZYNSysLifeCycleListOfPrivateObj& operator=(ZYNSysLifeCycleListOfPrivateObj const& other) = default;
  ~ZYNSysLifeCycleListOfPrivateObj() override;

 protected:
  void* ChildCopyItem(void const* item) const override;
  void ChildDeleteItem(void* item) const override;
  // 0 for a null item or the same constructor; otherwise the second flag minus the first.
  int ChildCompareItem(void const* left, void const* right) const override;
};

#endif
