// ZYNSysLifeCycleDynamicLoadManagerImplement.cpp - the loader of shared libraries: dlopen and dlsym.
#include "ZYNSysLifeCycleDynamicLoadManagerImplement.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstring>

#include "ZYNSysLifeCycle.h"
#include "ZYNSysLifeCycleManager.h"

ZYNSysLifeCycleDynamicLoadManager* s_pLifeCycleDynamicLoadManager = new ZYNSysLifeCycleDynamicLoadManagerImplement();

static char const kFileNameFormat[] = "lib%s.so";

ZYNSysLifeCycleDynamicLoadManagerImplement::ZYNSysLifeCycleDynamicLoadManagerImplement()
    : _nameBuffer(nullptr), _nameSize(0) {}

ZYNSysLifeCycleDynamicLoadManagerImplement::~ZYNSysLifeCycleDynamicLoadManagerImplement() { delete[] _nameBuffer; }

bool ZYNSysLifeCycleDynamicLoadManagerImplement::IsResident(char const* name, void** handle) {
  size_t needed = strlen(name) + sizeof kFileNameFormat;
  if (needed > _nameSize) {
    delete[] _nameBuffer;
    _nameBuffer = new char[needed];
    _nameSize = needed;
  }
  snprintf(_nameBuffer, _nameSize, kFileNameFormat, name);
  void* loaded = dlopen(_nameBuffer, RTLD_LAZY | RTLD_NOLOAD);
  if (loaded == nullptr) return false;
  // The process holds the library anyway; the reference taken by asking goes back.
  dlclose(loaded);
  *handle = loaded;
  return true;
}

int ZYNSysLifeCycleDynamicLoadManagerImplement::Load(char const* name, void** handle) {
  if (name == nullptr || handle == nullptr) return -1;
  _mutex.Lock();
  int result = _Load(name, handle);
  _mutex.Unlock();
  return result;
}

int ZYNSysLifeCycleDynamicLoadManagerImplement::_Load(char const* name, void** handle) {
  if (IsResident(name, handle)) return 0;
  ZYNSysLifeCycleManager* manager = s_pLifeCycleManager.load(std::memory_order_acquire);
  if (manager == nullptr) return -1;
  ZYNSysLifeCycleListOfDynamicObj* library = manager->AddDynamicObj(name, handle);
  if (library == nullptr) return -1;
  if (*handle == nullptr) {
    // The library's static constructors register into the current record from here.
    *handle = dlopen(_nameBuffer, RTLD_LAZY | RTLD_GLOBAL);
    if (*handle == nullptr) {
      manager->ClearCurrentDynamicObj();
      return -1;
    }
  }
  return manager->ProcessLoadContext(library, name, *handle);
}

int ZYNSysLifeCycleDynamicLoadManagerImplement::Unload(void** handle) {
  _mutex.Lock();
  int result = _Unload(handle);
  _mutex.Unlock();
  return result;
}

int ZYNSysLifeCycleDynamicLoadManagerImplement::_Unload(void** handle) {
  if (handle == nullptr || *handle == nullptr) return 0;
  ZYNSysLifeCycleListOfDynamicObj* library = nullptr;
  ZYNSysLifeCycleManager* manager = s_pLifeCycleManager.load(std::memory_order_acquire);
  if (manager != nullptr) {
    library = manager->FindDynamicObj(*handle);
    if (library == nullptr) return 0;
  }
  int closed = dlclose(*handle);
  *handle = nullptr;
  if (library != nullptr) library->SetHandle(nullptr);
  return closed == 0 ? 0 : -1;
}

void* ZYNSysLifeCycleDynamicLoadManagerImplement::GetFunction(void* handle, char const* name) {
  if (handle == nullptr || name == nullptr) return nullptr;
  _mutex.Lock();
  void* function = dlsym(handle, name);
  _mutex.Unlock();
  return function;
}
