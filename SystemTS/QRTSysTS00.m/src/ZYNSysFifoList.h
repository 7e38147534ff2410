#ifndef ZYN_SYSTEMTS_ZYNSYSFIFOLIST_H
#define ZYN_SYSTEMTS_ZYNSYSFIFOLIST_H

// A lock-free queue on compare-and-swap of pointers. `head` is a dummy node; a dequeue
// hands the old dummy back to the caller, who frees it once no other thread can still be
// looking at it.
struct fifo_list_elem {
  void* item;
  fifo_list_elem* next;
};

// 1, or -1 for a null node or tail.
int enqueue(fifo_list_elem* node, fifo_list_elem*& tail);
// 1 with the item and the old dummy in `taken`, 0 when empty, -1 for a null output or head.
int dequeue(fifo_list_elem*& taken, void** item, fifo_list_elem*& head, fifo_list_elem*& tail);

#endif
