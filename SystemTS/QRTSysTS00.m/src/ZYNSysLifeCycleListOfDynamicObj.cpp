// ZYNSysLifeCycleListOfDynamicObj.cpp - the life-cycle manager's list of objects from shared libraries.
#include "ZYNSysLifeCycleListOfDynamicObj.h"

#include <cstring>

ZYNSysLifeCycleListOfDynamicObj::ZYNSysLifeCycleListOfDynamicObj()
    : _handle(nullptr), _name(nullptr), _list(ZYNSysListQueue, true) {}

ZYNSysLifeCycleListOfDynamicObj::~ZYNSysLifeCycleListOfDynamicObj() { delete[] _name; }

void ZYNSysLifeCycleListOfDynamicObj::SetName(char const* name) {
  if (name == _name) return;
  char* copy = nullptr;
  if (name != nullptr) {
    size_t size = strlen(name) + 1;
    copy = new char[size];
    memcpy(copy, name, size);
  }
  delete[] _name;
  _name = copy;
}
