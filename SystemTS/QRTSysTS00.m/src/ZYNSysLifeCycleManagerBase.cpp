// ZYNSysLifeCycleManagerBase.cpp - the life-cycle manager: registration and dispatch order.
#include "ZYNSysLifeCycleManagerBase.h"

#include <cstring>

#include "ZYNSysLifeCycle.h"

ZYNSysLifeCycleManagerBase::ZYNSysLifeCycleManagerBase()
    : _mutex(0, 1, 0), _state(-1), _current(nullptr), _initializationDispatched(false) {}

ZYNSysLifeCycleManagerBase::~ZYNSysLifeCycleManagerBase() {}

static ZYNSysLifeCycleStruct* sRecord(ZYNSysListElementStruct* element) {
  return static_cast<ZYNSysLifeCycleStruct*>(element->item);
}

static ZYNSysLifeCycleListOfDynamicObj* sLibrary(ZYNSysListElementStruct* element) {
  return static_cast<ZYNSysLifeCycleListOfDynamicObj*>(element->item);
}

void* ZYNSysLifeCycleManagerBase::Register(void (*constructor)(void*), void (*stateChange)(int),
                                           void (*systemCall)(int), unsigned short flag) {
  if (constructor == nullptr) return nullptr;
  ZYNSysLifeCycleStruct record = {flag, constructor, stateChange, systemCall};
  if (flag >= ZYNSysLifeCycleFlagPrivateLimit) {
    _private.Add(&record);
    return nullptr;
  }
  if (_current != nullptr) {
    ZYNSysLifeCycleListOfUnknownObj& list = _current->GetList();
    if (list.Add(&record) == nullptr) return nullptr;
    return list._GetTail()->item;
  }
  _program.GetList().Add(&record);
  return nullptr;
}

static void sCallConstructors(ZYNSysList const& list) {
  for (ZYNSysListElementStruct* element = list._GetHead(); element != nullptr; element = element->next) {
    if (sRecord(element)->constructor != nullptr) sRecord(element)->constructor(nullptr);
  }
}

static void sCallStateChanges(ZYNSysList const& list, int state) {
  for (ZYNSysListElementStruct* element = list._GetHead(); element != nullptr; element = element->next) {
    if (sRecord(element)->stateChange != nullptr) sRecord(element)->stateChange(state);
  }
}

static void sCallSystemCalls(ZYNSysList const& list, int call) {
  for (ZYNSysListElementStruct* element = list._GetHead(); element != nullptr; element = element->next) {
    if (sRecord(element)->systemCall != nullptr) sRecord(element)->systemCall(call);
  }
}

static void sFinalizeBackwards(ZYNSysList const& list) {
  for (ZYNSysListElementStruct* element = list._GetTail(); element != nullptr; element = element->previous) {
    void (*stateChange)(int) = sRecord(element)->stateChange;
    if (stateChange == nullptr) continue;
    sRecord(element)->stateChange = nullptr;
    stateChange(0);
  }
}

int ZYNSysLifeCycleManagerBase::DispatchInitialization() {
  _mutex.Lock();
  if (_initializationDispatched) {
    _mutex.Unlock();
    return -1;
  }
  // Marked first, so that a callback that asks again is refused instead of looping.
  _initializationDispatched = true;
  sCallConstructors(_private);
  sCallConstructors(_program.GetList());
  _state = 0;
  _mutex.Unlock();
  return 0;
}

void ZYNSysLifeCycleManagerBase::DispatchFinalization() {
  _mutex.Lock();
  _state = -1;
  for (ZYNSysListElementStruct* element = _dynamic._GetHead(); element != nullptr; element = element->next) {
    sFinalizeBackwards(sLibrary(element)->GetList());
  }
  sFinalizeBackwards(_program.GetList());
  sFinalizeBackwards(_private);
  _mutex.Unlock();
}

void ZYNSysLifeCycleManagerBase::DispatchStateChange(int state) {
  _mutex.Lock();
  sCallStateChanges(_private, state);
  sCallStateChanges(_program.GetList(), state);
  _mutex.Unlock();
}

void ZYNSysLifeCycleManagerBase::DispatchSystemCall(int call) {
  _mutex.Lock();
  sCallSystemCalls(_private, call);
  sCallSystemCalls(_program.GetList(), call);
  _mutex.Unlock();
}

bool ZYNSysLifeCycleManagerBase::IsInitializationDispatched() {
  _mutex.Lock();
  bool dispatched = _initializationDispatched;
  _mutex.Unlock();
  return dispatched;
}

static ZYNSysLifeCycleListOfDynamicObj* sFindByName(ZYNSysList const& libraries, char const* name) {
  for (ZYNSysListElementStruct* element = libraries._GetHead(); element != nullptr; element = element->next) {
    char const* known = sLibrary(element)->GetName();
    if (known != nullptr && strcmp(known, name) == 0) return sLibrary(element);
  }
  return nullptr;
}

ZYNSysLifeCycleListOfDynamicObj* ZYNSysLifeCycleManagerBase::AddDynamicObj(char const* name, void** handle) {
  _mutex.Lock();
  _current = nullptr;
  if (_state < 0 || handle == nullptr) {
    _mutex.Unlock();
    return nullptr;
  }
  *handle = nullptr;
  ZYNSysLifeCycleListOfDynamicObj* library = name != nullptr ? sFindByName(_dynamic, name) : nullptr;
  if (library != nullptr) {
    *handle = library->GetHandle();
    // An unloaded library collects its registrations afresh.
    if (library->GetHandle() == nullptr) library->GetList().removeall();
  } else {
    ZYNSysListElementStruct* element = _dynamic.Add(&_dynamic);
    library = element != nullptr ? sLibrary(element) : nullptr;
  }
  _current = library;
  _mutex.Unlock();
  return library;
}

int ZYNSysLifeCycleManagerBase::ProcessLoadContext(ZYNSysLifeCycleListOfDynamicObj* object, char const* name,
                                                   void* handle) {
  if (object == nullptr) return -1;
  _mutex.Lock();
  object->SetName(name);
  object->SetHandle(handle);
  sCallConstructors(object->GetList());
  _current = nullptr;
  _mutex.Unlock();
  return 0;
}

void ZYNSysLifeCycleManagerBase::ClearCurrentDynamicObj() {
  _mutex.Lock();
  _current = nullptr;
  _mutex.Unlock();
}

ZYNSysLifeCycleListOfDynamicObj* ZYNSysLifeCycleManagerBase::FindDynamicObj(void* handle) {
  if (handle == nullptr) return nullptr;
  _mutex.Lock();
  ZYNSysLifeCycleListOfDynamicObj* found = nullptr;
  for (ZYNSysListElementStruct* element = _dynamic._GetHead(); element != nullptr; element = element->next) {
    if (sLibrary(element)->GetHandle() != handle) continue;
    found = sLibrary(element);
    break;
  }
  _mutex.Unlock();
  return found;
}
