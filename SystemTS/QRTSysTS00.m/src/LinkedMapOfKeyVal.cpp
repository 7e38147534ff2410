// LinkedMapOfKeyVal.cpp - a linked map of keys to values, kept in insertion order.
#include "LinkedMapOfKeyVal.h"

#include <new>

#include "ZYNResult.h"

static LinkedMapOfKeyValNode* sNext(LinkedMapOfKeyValNode const* node) {
  return static_cast<LinkedMapOfKeyValNode*>(node->next);
}

LinkedMapOfKeyVal::LinkedMapOfKeyVal(LinkedMapOfKeyVal const& other) { *this = other; }

LinkedMapOfKeyVal& LinkedMapOfKeyVal::operator=(LinkedMapOfKeyVal const& other) {
  if (&other == this) return *this;
  FreeNodes();
  for (LinkedMapOfKeyValNode* node = other.GetHead(); node != nullptr; node = sNext(node)) {
    LinkedMapOfKeyValNode* copy = new LinkedMapOfKeyValNode;
    copy->key = node->key;
    copy->value = node->value;
    _list.PushBack(copy);
  }
  return *this;
}

LinkedMapOfKeyVal::~LinkedMapOfKeyVal() { FreeNodes(); }

LinkedMapOfKeyValNode* LinkedMapOfKeyVal::_FindNode(int key) const {
  for (LinkedMapOfKeyValNode* node = GetHead(); node != nullptr; node = sNext(node)) {
    if (node->key == key) return node;
  }
  return nullptr;
}

int LinkedMapOfKeyVal::Put(int const& key, void* const& value) {
  LinkedMapOfKeyValNode* node = _FindNode(key);
  if (node != nullptr) {
    node->value = value;
    return ZYN_S_OK;
  }
  node = new LinkedMapOfKeyValNode;
  node->key = key;
  node->value = value;
  _list.PushBack(node);
  return ZYN_S_OK;
}

int LinkedMapOfKeyVal::Get(int const& key, void*& value) const {
  LinkedMapOfKeyValNode* node = _FindNode(key);
  if (node == nullptr) return ZYN_E_FAIL;
  value = node->value;
  return ZYN_S_OK;
}

void** LinkedMapOfKeyVal::GetAsPtr(int const& key) {
  LinkedMapOfKeyValNode* node = _FindNode(key);
  return node != nullptr ? &node->value : nullptr;
}

void* const* LinkedMapOfKeyVal::GetAsPtr(int const& key) const {
  LinkedMapOfKeyValNode* node = _FindNode(key);
  return node != nullptr ? &node->value : nullptr;
}

int LinkedMapOfKeyVal::Remove(int const& key) {
  LinkedMapOfKeyValNode* node = _FindNode(key);
  if (node == nullptr) return GetLength();
  _list.Unlink(node);
  delete node;
  return GetLength();
}

int LinkedMapOfKeyVal::Delete(int const& key) {
  LinkedMapOfKeyValNode* node = _FindNode(key);
  if (node == nullptr) return GetLength();
  ::operator delete(node->value);
  _list.Unlink(node);
  delete node;
  return GetLength();
}

void LinkedMapOfKeyVal::DeleteAll() {
  for (LinkedMapOfKeyValNode* node = GetHead(); node != nullptr; node = sNext(node)) {
    ::operator delete(node->value);
  }
  FreeNodes();
}

void LinkedMapOfKeyVal::DeleteAllAndThis() {
  DeleteAll();
  delete this;
}

LinkedMapOfKeyValNode* LinkedMapOfKeyVal::DetachAll() {
  LinkedMapOfKeyValNode* head = GetHead();
  _list.Reset();
  return head;
}

void LinkedMapOfKeyVal::FreeNodes() {
  LinkedMapOfKeyValNode* node = GetHead();
  while (node != nullptr) {
    LinkedMapOfKeyValNode* next = sNext(node);
    delete node;
    node = next;
  }
  _list.Reset();
}
