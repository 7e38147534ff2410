#ifndef ZYN_SYSTEMTS_ZYNSYSLIFECYCLE_H
#define ZYN_SYSTEMTS_ZYNSYSLIFECYCLE_H

#include <atomic>

class ZYNSysLifeCycleManager;

// Registrations at or above the limit go to the manager's own list, sorted by flag, one
// per flag; those below it are the program's, in order of registration.
enum ZYNSysLifeCyclePriorFlag {
  ZYNSysLifeCycleFlagProgram = 0,
  ZYNSysLifeCycleFlagPrivateLimit = 0xA000,
  ZYNSysLifeCycleFlagLanguageEnv = 0xA005,
};

// One module's registration.
struct ZYNSysLifeCycleStruct {
  unsigned short flag;
  void (*constructor)(void*);  // called at initialisation with null
  void (*stateChange)(int);    // also called with 0 at finalisation
  void (*systemCall)(int);
};

// Reached by every operation below; published once by compare-and-swap.
extern std::atomic<ZYNSysLifeCycleManager*> s_pLifeCycleManager;

// Registration, meant for static constructors: it takes no lock. `name` has no effect.
// Internal gives the last item of a dynamic object's list when registering into one, and
// null otherwise, so the public forms give -1 for a registration in the program's or the
// private list; no caller uses the result.
void* ZYNSysLifeCycleGlobalFactoryInternal(char const* name, void (*constructor)(void*), void (*stateChange)(int),
                                           void (*systemCall)(int), unsigned short flag);
int ZYNSysLifeCycleGlobalFactoryPrivate(ZYNSysLifeCyclePriorFlag flag, void (*constructor)(void*),
                                        void (*stateChange)(int), void (*systemCall)(int));
int ZYNSysLifeCycleGlobalFactory(void (*constructor)(void*), void (*stateChange)(int), void (*systemCall)(int));
int ZYNSysLifeCycleGlobalFactoryInternalCheck(ZYNSysLifeCycleStruct* record);

// Dispatches for a host program. Initialisation runs once: 0, then -1. The others give 0,
// or -1 without a manager.
int ZYNSysLifeCycleDispatchInitialization();
int ZYNSysLifeCycleDispatchFinalization();
int ZYNSysLifeCycleDispatchStateChange(int state);
int ZYNSysLifeCycleDispatchSystemCall(int call);

// Dynamic libraries, by the name between "lib" and ".so".
int ZYNSysLifeCycleDynamicLoad(char const* name, void** handle);
int ZYNSysLifeCycleDynamicUnload(void** handle);
void* ZYNSysLifeCycleDynamicGetFunction(void* handle, char const* name);
int ZYNSysLifeCycleDynamicPrepareLoadContext(void** context, char const* name, void** handle);
int ZYNSysLifeCycleDynamicProcessLoadContext(void** context, char const* name, void* handle);
int ZYNSysLifeCycleDispatchDynamicPrepareUnloadContext(void** context, void* handle);
int ZYNSysLifeCycleDispatchDynamicProcessUnloadContext(void** context);

#endif
