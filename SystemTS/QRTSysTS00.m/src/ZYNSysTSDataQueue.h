#ifndef ZYN_SYSTEMTS_ZYNSYSTSDATAQUEUE_H
#define ZYN_SYSTEMTS_ZYNSYSTSDATAQUEUE_H

#include <atomic>
#include <cstdint>

#include "QRTMutex.h"

class ZYNSysSemaphore;

// A FIFO of pointers for several threads: PushFirst adds the newest, PopLast takes the
// oldest. `head` is a dummy node whose item is gone; the queue is empty when the dummy
// has no next node. With a semaphore, PopLast waits for an item.
class ZYNSysTSDataQueue {
 public:
  static ZYNSysTSDataQueue* CreateEmptyQueue(int useSemaphore, int maxCount);

  ZYNSysTSDataQueue(int useSemaphore, int maxCount);
  // The owner empties the queue first: remaining items and their nodes are its concern.
  virtual ~ZYNSysTSDataQueue();

  // 1, or -1 for a null item.
  int PushFirst(void* item);
  // 1 with the oldest item, 0 with null when empty, -1 for a null output.
  int PopLast(void** item, int timeoutMs);

 private:
  struct Node {
    void* item;
    Node* next;
  };

  ZYNSysTSDataQueue(ZYNSysTSDataQueue const&) = delete;
  ZYNSysTSDataQueue& operator=(ZYNSysTSDataQueue const&) = delete;

  Node* _head;
  Node* _tail;
  QRTMutex _unusedMutex;  // keeps its place in the layout; only the second is ever locked
  QRTMutex _mutex;
  std::atomic<int32_t> _count;
  ZYNSysSemaphore* _semaphore;
};

#endif
