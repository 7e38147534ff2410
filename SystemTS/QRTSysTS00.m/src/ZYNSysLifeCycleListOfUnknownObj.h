#ifndef ZYN_SYSTEMTS_ZYNSYSLIFECYCLELISTOFUNKNOWNOBJ_H
#define ZYN_SYSTEMTS_ZYNSYSLIFECYCLELISTOFUNKNOWNOBJ_H

#include "ZYNSysList.h"

// The registrations of the program or of one dynamic library.
class ZYNSysLifeCycleListOfUnknownObj : public ZYNSysList {
 public:
  ZYNSysLifeCycleListOfUnknownObj(ZYNSysListType type, bool allowDuplicates);
  ZYNSysLifeCycleListOfUnknownObj(ZYNSysLifeCycleListOfUnknownObj const& other);
  ZYNSysLifeCycleListOfUnknownObj& operator=(ZYNSysLifeCycleListOfUnknownObj const& other) = default;
  ~ZYNSysLifeCycleListOfUnknownObj() override;

 protected:
  void* ChildCopyItem(void const* item) const override;
  void ChildDeleteItem(void* item) const override;
  // 0 for a null item or the same constructor; otherwise the first flag minus the second.
  int ChildCompareItem(void const* left, void const* right) const override;
};

#endif
