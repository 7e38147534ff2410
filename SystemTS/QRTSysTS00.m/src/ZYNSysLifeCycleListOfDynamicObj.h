#ifndef ZYN_SYSTEMTS_ZYNSYSLIFECYCLELISTOFDYNAMICOBJ_H
#define ZYN_SYSTEMTS_ZYNSYSLIFECYCLELISTOFDYNAMICOBJ_H

#include "ZYNSysLifeCycleListOfUnknownObj.h"

// One dynamically loaded library, or the program itself: a handle, a name and the
// registrations its static constructors made.
class ZYNSysLifeCycleListOfDynamicObj {
 public:
  ZYNSysLifeCycleListOfDynamicObj();
  ~ZYNSysLifeCycleListOfDynamicObj();

  void* GetHandle() const { return _handle; }
  void SetHandle(void* handle) { _handle = handle; }
  char const* GetName() const { return _name; }
  void SetName(char const* name);
  ZYNSysLifeCycleListOfUnknownObj& GetList() { return _list; }

 private:
  ZYNSysLifeCycleListOfDynamicObj(ZYNSysLifeCycleListOfDynamicObj const&) = delete;
  ZYNSysLifeCycleListOfDynamicObj& operator=(ZYNSysLifeCycleListOfDynamicObj const&) = delete;

  void* _handle;
  char* _name;
  ZYNSysLifeCycleListOfUnknownObj _list;
};

#endif
