// ZYNSysFifoList.cpp - the lock-free first-in first-out list.
#include "ZYNSysFifoList.h"

static fifo_list_elem* sLoad(fifo_list_elem* const& slot) { return __atomic_load_n(&slot, __ATOMIC_ACQUIRE); }

static bool sSwap(fifo_list_elem*& slot, fifo_list_elem* expected, fifo_list_elem* desired) {
  return __atomic_compare_exchange_n(&slot, &expected, desired, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
}

int enqueue(fifo_list_elem* node, fifo_list_elem*& tail) {
  if (node == nullptr || sLoad(tail) == nullptr) return -1;
  __atomic_store_n(&node->next, static_cast<fifo_list_elem*>(nullptr), __ATOMIC_RELAXED);
  fifo_list_elem* last = nullptr;
  for (;;) {
    last = sLoad(tail);
    fifo_list_elem* next = sLoad(last->next);
    if (last != sLoad(tail)) continue;
    if (next != nullptr) {
      // Another enqueue linked its node but hasn't moved the tail yet: help it along.
      sSwap(tail, last, next);
      continue;
    }
    if (sSwap(last->next, nullptr, node)) break;
  }
  sSwap(tail, last, node);
  return 1;
}

int dequeue(fifo_list_elem*& taken, void** item, fifo_list_elem*& head, fifo_list_elem*& tail) {
  if (item == nullptr || sLoad(head) == nullptr) return -1;
  for (;;) {
    fifo_list_elem* first = sLoad(head);
    fifo_list_elem* last = sLoad(tail);
    fifo_list_elem* next = sLoad(first->next);
    if (first != sLoad(head)) continue;
    if (first == last) {
      if (next == nullptr) return 0;
      sSwap(tail, last, next);
      continue;
    }
    void* value = __atomic_load_n(&next->item, __ATOMIC_ACQUIRE);
    if (sSwap(head, first, next)) {
      *item = value;
      taken = first;
      return 1;
    }
  }
}
