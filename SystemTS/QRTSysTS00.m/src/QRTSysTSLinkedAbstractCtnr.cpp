// QRTSysTSLinkedAbstractCtnr.cpp - the doubly linked container under the system lists.
#include "QRTSysTSLinkedAbstractCtnr.h"

void QRTSysTSLinkedAbstractCtnr::PushBack(QRTSysTSLinkedNode* node) {
  node->next = nullptr;
  node->prev = _tail;
  if (_tail != nullptr) {
    _tail->next = node;
  } else {
    _head = node;
  }
  _tail = node;
  ++_count;
}

void QRTSysTSLinkedAbstractCtnr::Unlink(QRTSysTSLinkedNode* node) {
  if (node->prev != nullptr) {
    node->prev->next = node->next;
  } else {
    _head = node->next;
  }
  if (node->next != nullptr) {
    node->next->prev = node->prev;
  } else {
    _tail = node->prev;
  }
  node->next = nullptr;
  node->prev = nullptr;
  --_count;
}

void QRTSysTSLinkedAbstractCtnr::Reset() {
  _count = 0;
  _head = nullptr;
  _tail = nullptr;
}
