#ifndef ZYN_SYSTEMTS_ZYNSYSLIFECYCLEDYNAMICLOADMANAGER_H
#define ZYN_SYSTEMTS_ZYNSYSLIFECYCLEDYNAMICLOADMANAGER_H

#include "QRTMutex.h"

// Loads and unloads the libraries whose modules register with the life-cycle manager.
class ZYNSysLifeCycleDynamicLoadManager {
 public:
  ZYNSysLifeCycleDynamicLoadManager();
  virtual ~ZYNSysLifeCycleDynamicLoadManager();

  // 0 with the handle, or -1.
  virtual int Load(char const* name, void** handle) = 0;
  // 0, or -1 when the platform refuses to close the library.
  virtual int Unload(void** handle) = 0;
  virtual void* GetFunction(void* handle, char const* name) = 0;

 protected:
  QRTMutex _mutex;

 private:
  ZYNSysLifeCycleDynamicLoadManager(ZYNSysLifeCycleDynamicLoadManager const&) = delete;
  ZYNSysLifeCycleDynamicLoadManager& operator=(ZYNSysLifeCycleDynamicLoadManager const&) = delete;
};

// Made by a static constructor.
extern ZYNSysLifeCycleDynamicLoadManager* s_pLifeCycleDynamicLoadManager;

#endif
