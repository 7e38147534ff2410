#ifndef ZYN_SYSTEMTS_ZYNSYSLIFECYCLEDYNAMICLOADMANAGERIMPLEMENT_H
#define ZYN_SYSTEMTS_ZYNSYSLIFECYCLEDYNAMICLOADMANAGERIMPLEMENT_H

#include <cstddef>

#include "ZYNSysLifeCycleDynamicLoadManager.h"

// The loader over dlopen. A library named N is the file libN.so.
class ZYNSysLifeCycleDynamicLoadManagerImplement : public ZYNSysLifeCycleDynamicLoadManager {
 public:
  ZYNSysLifeCycleDynamicLoadManagerImplement();
  ~ZYNSysLifeCycleDynamicLoadManagerImplement() override;

  // A library already in the process is used as it is, without a record of its own.
  int Load(char const* name, void** handle) override;
  // A handle the manager doesn't know is left open, with the result 0.
  int Unload(void** handle) override;
  void* GetFunction(void* handle, char const* name) override;

 private:
  // Builds the file name into the scratch buffer and asks whether it is loaded already.
  bool IsResident(char const* name, void** handle);
  int _Load(char const* name, void** handle);
  int _Unload(void** handle);

  char* _nameBuffer;
  size_t _nameSize;
};

#endif
