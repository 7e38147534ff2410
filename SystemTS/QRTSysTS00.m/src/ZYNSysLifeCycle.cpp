// ZYNSysLifeCycle.cpp - the registration of objects with the life-cycle manager.
#include "ZYNSysLifeCycle.h"

#include "ZYNSysLifeCycleDynamicLoadManager.h"
#include "ZYNSysLifeCycleManager.h"

std::atomic<ZYNSysLifeCycleManager*> s_pLifeCycleManager{nullptr};

// The manager, made on first need. `lost` tells a caller that made one of its own and
// lost the race of publishing it.
static ZYNSysLifeCycleManager* sManager(bool* lost) {
  ZYNSysLifeCycleManager* manager = s_pLifeCycleManager.load(std::memory_order_acquire);
  if (manager != nullptr) return manager;
  ZYNSysLifeCycleManager* fresh = new ZYNSysLifeCycleManager();
  if (s_pLifeCycleManager.compare_exchange_strong(manager, fresh, std::memory_order_acq_rel)) {
    ZYNSysLifeCycleManager::S_pSingletonPtr = fresh;
    return fresh;
  }
  delete fresh;
  if (lost != nullptr) *lost = true;
  return manager;
}

static ZYNSysLifeCycleManager* sExistingManager() { return s_pLifeCycleManager.load(std::memory_order_acquire); }

void* ZYNSysLifeCycleGlobalFactoryInternal(char const*, void (*constructor)(void*), void (*stateChange)(int),
                                           void (*systemCall)(int), unsigned short flag) {
  if (constructor == nullptr) return nullptr;
  bool lost = false;
  ZYNSysLifeCycleManager* manager = sManager(&lost);
  if (lost) return nullptr;
  return manager->Register(constructor, stateChange, systemCall, flag);
}

int ZYNSysLifeCycleGlobalFactoryPrivate(ZYNSysLifeCyclePriorFlag flag, void (*constructor)(void*),
                                        void (*stateChange)(int), void (*systemCall)(int)) {
  unsigned short lowBits = static_cast<unsigned short>(static_cast<unsigned int>(flag) & 0xFFFFu);
  return ZYNSysLifeCycleGlobalFactoryInternal(nullptr, constructor, stateChange, systemCall, lowBits) != nullptr ? 0
                                                                                                                 : -1;
}

int ZYNSysLifeCycleGlobalFactory(void (*constructor)(void*), void (*stateChange)(int), void (*systemCall)(int)) {
  return ZYNSysLifeCycleGlobalFactoryInternal(nullptr, constructor, stateChange, systemCall, 0) != nullptr ? 0 : -1;
}

int ZYNSysLifeCycleGlobalFactoryInternalCheck(ZYNSysLifeCycleStruct* record) {
  if (sExistingManager() == nullptr || record == nullptr || record->stateChange == nullptr) return -1;
  void (*stateChange)(int) = record->stateChange;
  record->stateChange = nullptr;
  stateChange(0);
  return 0;
}

int ZYNSysLifeCycleDispatchInitialization() {
  ZYNSysLifeCycleManager* manager = sExistingManager();
  if (manager != nullptr && manager->IsInitializationDispatched()) return -1;
  return sManager(nullptr)->DispatchInitialization();
}

int ZYNSysLifeCycleDispatchFinalization() {
  ZYNSysLifeCycleManager* manager = sExistingManager();
  if (manager == nullptr) return -1;
  manager->DispatchFinalization();
  return 0;
}

int ZYNSysLifeCycleDispatchStateChange(int state) {
  ZYNSysLifeCycleManager* manager = sExistingManager();
  if (manager == nullptr) return -1;
  manager->DispatchStateChange(state);
  return 0;
}

int ZYNSysLifeCycleDispatchSystemCall(int call) {
  ZYNSysLifeCycleManager* manager = sExistingManager();
  if (manager == nullptr) return -1;
  manager->DispatchSystemCall(call);
  return 0;
}

int ZYNSysLifeCycleDynamicLoad(char const* name, void** handle) {
  if (s_pLifeCycleDynamicLoadManager == nullptr) return -1;
  return s_pLifeCycleDynamicLoadManager->Load(name, handle);
}

int ZYNSysLifeCycleDynamicUnload(void** handle) {
  if (s_pLifeCycleDynamicLoadManager == nullptr) return -1;
  return s_pLifeCycleDynamicLoadManager->Unload(handle);
}

void* ZYNSysLifeCycleDynamicGetFunction(void* handle, char const* name) {
  if (handle == nullptr || name == nullptr || s_pLifeCycleDynamicLoadManager == nullptr) return nullptr;
  return s_pLifeCycleDynamicLoadManager->GetFunction(handle, name);
}

int ZYNSysLifeCycleDynamicPrepareLoadContext(void** context, char const* name, void** handle) {
  if (context == nullptr) return -1;
  *context = nullptr;
  ZYNSysLifeCycleManager* manager = sExistingManager();
  if (manager == nullptr) return -1;
  *context = manager->AddDynamicObj(name, handle);
  return *context != nullptr ? 0 : -1;
}

int ZYNSysLifeCycleDynamicProcessLoadContext(void** context, char const* name, void* handle) {
  ZYNSysLifeCycleManager* manager = sExistingManager();
  if (context == nullptr || manager == nullptr) return -1;
  return manager->ProcessLoadContext(static_cast<ZYNSysLifeCycleListOfDynamicObj*>(*context), name, handle);
}

int ZYNSysLifeCycleDispatchDynamicPrepareUnloadContext(void** context, void* handle) {
  ZYNSysLifeCycleManager* manager = sExistingManager();
  if (context == nullptr || manager == nullptr) return -1;
  *context = manager->FindDynamicObj(handle);
  return *context != nullptr ? 0 : -1;
}

int ZYNSysLifeCycleDispatchDynamicProcessUnloadContext(void** context) {
  if (context == nullptr || *context == nullptr) return -1;
  static_cast<ZYNSysLifeCycleListOfDynamicObj*>(*context)->SetHandle(nullptr);
  return 0;
}
