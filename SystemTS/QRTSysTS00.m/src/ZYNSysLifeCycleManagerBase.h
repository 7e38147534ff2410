#ifndef ZYN_SYSTEMTS_ZYNSYSLIFECYCLEMANAGERBASE_H
#define ZYN_SYSTEMTS_ZYNSYSLIFECYCLEMANAGERBASE_H

#include <cstdint>

#include "QRTMutex.h"
#include "ZYNSysLifeCycleListOfDynamicObj.h"
#include "ZYNSysLifeCycleListOfListOfDynamicUnknownObj.h"
#include "ZYNSysLifeCycleListOfPrivateObj.h"

// Keeps the registrations of the manager's own modules, of the program and of each
// dynamically loaded library, and dispatches their callbacks. The mutex is recursive,
// so a callback may register further modules.
class ZYNSysLifeCycleManagerBase {
 public:
  ZYNSysLifeCycleManagerBase();
  virtual ~ZYNSysLifeCycleManagerBase();

  // A null constructor is refused. See ZYNSysLifeCycleGlobalFactoryInternal for the result.
  void* Register(void (*constructor)(void*), void (*stateChange)(int), void (*systemCall)(int), unsigned short flag);

  // Constructors, private list then program list, head to tail. 0, or -1 after the first.
  int DispatchInitialization();
  // State changes with 0 in reverse: libraries, program, private list. Each callback
  // is cleared as it is called, so none runs twice.
  void DispatchFinalization();
  // Private list then program list, head to tail; libraries are left out.
  void DispatchStateChange(int state);
  void DispatchSystemCall(int call);
  bool IsInitializationDispatched();

  // The record for a library about to be loaded, which becomes the current one so that
  // the library's registrations join its list. Null before initialisation, during
  // finalisation, or for a null handle. A known name gives its record and its handle.
  ZYNSysLifeCycleListOfDynamicObj* AddDynamicObj(char const* name, void** handle);
  // Records name and handle and calls the library's constructors; clears the current one.
  int ProcessLoadContext(ZYNSysLifeCycleListOfDynamicObj* object, char const* name, void* handle);
  void ClearCurrentDynamicObj();
  ZYNSysLifeCycleListOfDynamicObj* FindDynamicObj(void* handle);

 private:
  ZYNSysLifeCycleManagerBase(ZYNSysLifeCycleManagerBase const&) = delete;
  ZYNSysLifeCycleManagerBase& operator=(ZYNSysLifeCycleManagerBase const&) = delete;

  QRTMutex _mutex;
  int32_t _state;  // -1 until initialisation, 0 after it, -1 again from finalisation on
  ZYNSysLifeCycleListOfDynamicObj* _current;
  ZYNSysLifeCycleListOfPrivateObj _private;
  ZYNSysLifeCycleListOfDynamicObj _program;
  ZYNSysLifeCycleListOfListOfDynamicUnknownObj _dynamic;
  bool _initializationDispatched;
};

#endif
