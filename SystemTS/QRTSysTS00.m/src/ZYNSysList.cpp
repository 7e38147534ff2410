// ZYNSysList.cpp - the ordered list of the life-cycle manager.
#include "ZYNSysList.h"

ZYNSysList::ZYNSysList(ZYNSysListType type, bool allowDuplicates)
    : _head(nullptr), _tail(nullptr), _count(0), _cursor(nullptr), _type(type), _allowDuplicates(allowDuplicates) {}

ZYNSysList::ZYNSysList(ZYNSysList const& other)
    : _head(nullptr),
      _tail(nullptr),
      _count(0),
      _cursor(nullptr),
      _type(other._type),
      _allowDuplicates(other._allowDuplicates) {}

ZYNSysList& ZYNSysList::operator=(ZYNSysList const& other) {
  if (this == &other) return *this;
  _type = other._type;
  _allowDuplicates = other._allowDuplicates;
  copylist(other);
  return *this;
}

ZYNSysList::~ZYNSysList() { removeall(); }

void* ZYNSysList::ChildCopyItem(void const* item) const { return const_cast<void*>(item); }

void ZYNSysList::ChildDeleteItem(void*) const {}

int ZYNSysList::ChildCompareItem(void const* left, void const* right) const { return left == right ? 0 : 1; }

bool ZYNSysList::_IsSorted() const {
  return _type == ZYNSysListSorted || _type == ZYNSysListSortedQueue || _type == ZYNSysListSortedRing;
}

bool ZYNSysList::_Wraps() const { return _type == ZYNSysListRing || _type == ZYNSysListSortedRing; }

void ZYNSysList::copylist(ZYNSysList const& other) {
  removeall();
  for (ZYNSysListElementStruct* element = other._head; element != nullptr; element = element->next) {
    addtail(element->item);
  }
}

ZYNSysListElementStruct* ZYNSysList::_Insert(void const* item, ZYNSysListElementStruct* previous,
                                             ZYNSysListElementStruct* next) {
  ZYNSysListElementStruct* element = new ZYNSysListElementStruct{ChildCopyItem(item), next, previous};
  if (previous != nullptr) {
    previous->next = element;
  } else {
    _head = element;
  }
  if (next != nullptr) {
    next->previous = element;
  } else {
    _tail = element;
  }
  _count++;
  return element;
}

ZYNSysListElementStruct* ZYNSysList::Add(void const* item) {
  if (!_IsSorted()) return addtail(item);
  for (ZYNSysListElementStruct* element = _head; element != nullptr; element = element->next) {
    int order = ChildCompareItem(element->item, item);
    if (order == 0 && !_allowDuplicates) return nullptr;
    if (order < 0) return addbefore(item, element);
  }
  return addtail(item);
}

ZYNSysListElementStruct* ZYNSysList::addtail(void const* item) { return _Insert(item, _tail, nullptr); }

ZYNSysListElementStruct* ZYNSysList::addhead(void const* item) { return _Insert(item, nullptr, _head); }

ZYNSysListElementStruct* ZYNSysList::addbefore(void const* item, ZYNSysListElementStruct* element) {
  if (item == nullptr || element == nullptr) return nullptr;
  return _Insert(item, element->previous, element);
}

ZYNSysListElementStruct* ZYNSysList::addafter(void const* item, ZYNSysListElementStruct* element) {
  if (item == nullptr || element == nullptr) return nullptr;
  return _Insert(item, element, element->next);
}

int ZYNSysList::Remove(void const* item) {
  for (ZYNSysListElementStruct* element = _head; element != nullptr; element = element->next) {
    if (ChildCompareItem(element->item, item) != 0) continue;
    removeat(element);
    return 0;
  }
  return -1;
}

int ZYNSysList::Remove(unsigned long index) {
  ZYNSysListElementStruct* element = _head;
  for (unsigned long i = 0; element != nullptr && i < index; i++) element = element->next;
  if (element == nullptr) return -1;
  removeat(element);
  return 0;
}

ZYNSysListElementStruct* ZYNSysList::removeat(ZYNSysListElementStruct* element) {
  if (element == nullptr) return nullptr;
  ZYNSysListElementStruct* next = element->next;
  if (element->previous != nullptr) {
    element->previous->next = next;
  } else {
    _head = next;
  }
  if (next != nullptr) {
    next->previous = element->previous;
  } else {
    _tail = element->previous;
  }
  if (_cursor == element) _cursor = nullptr;
  _count--;
  ChildDeleteItem(element->item);
  delete element;
  return next;
}

ZYNSysListElementStruct* ZYNSysList::removehead() { return removeat(_head); }

ZYNSysListElementStruct* ZYNSysList::removetail() { return removeat(_tail); }

void ZYNSysList::removeall() {
  while (_head != nullptr) removeat(_head);
}

void* ZYNSysList::GetFirst() {
  _cursor = _head;
  return _cursor != nullptr ? _cursor->item : nullptr;
}

void* ZYNSysList::GetLast() {
  _cursor = _tail;
  return _cursor != nullptr ? _cursor->item : nullptr;
}

void* ZYNSysList::GetNext() {
  if (_cursor == nullptr) return nullptr;
  _cursor = _cursor->next;
  if (_cursor == nullptr && _Wraps()) _cursor = _head;
  return _cursor != nullptr ? _cursor->item : nullptr;
}

void* ZYNSysList::GetPrevious() {
  if (_cursor == nullptr) return nullptr;
  _cursor = _cursor->previous;
  if (_cursor == nullptr && _Wraps()) _cursor = _tail;
  return _cursor != nullptr ? _cursor->item : nullptr;
}
