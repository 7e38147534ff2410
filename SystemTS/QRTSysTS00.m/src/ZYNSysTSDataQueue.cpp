// ZYNSysTSDataQueue.cpp - a first-in first-out queue of pointers for several threads.
#include "ZYNSysTSDataQueue.h"

#include "ZYNSysSemaphore.h"

ZYNSysTSDataQueue* ZYNSysTSDataQueue::CreateEmptyQueue(int useSemaphore, int maxCount) {
  return new ZYNSysTSDataQueue(useSemaphore, maxCount);
}

ZYNSysTSDataQueue::ZYNSysTSDataQueue(int useSemaphore, int maxCount)
    : _head(new Node()), _tail(nullptr), _unusedMutex(0, 0, 0), _mutex(0, 0, 0), _count(0), _semaphore(nullptr) {
  _tail = _head;
  if (useSemaphore != 0) _semaphore = ZYNSysSemaphore::ZYNSysCreateSemaphore(maxCount, 0, 0);
}

ZYNSysTSDataQueue::~ZYNSysTSDataQueue() {
  delete _semaphore;
  _semaphore = nullptr;
  delete _head;
  _head = nullptr;
}

int ZYNSysTSDataQueue::PushFirst(void* item) {
  if (item == nullptr) return -1;
  Node* node = new Node();
  node->item = item;
  _mutex.Lock();
  _tail->next = node;
  _tail = node;
  _mutex.Unlock();
  _count.fetch_add(1);
  if (_semaphore != nullptr) _semaphore->Signal();
  return 1;
}

int ZYNSysTSDataQueue::PopLast(void** item, int timeoutMs) {
  if (item == nullptr) return -1;
  *item = nullptr;
  if (_semaphore != nullptr) {
    // The wait only paces the caller; an empty queue after it still gives 0.
    if (timeoutMs < 1) {
      _semaphore->Wait();
    } else {
      _semaphore->TimedWait(timeoutMs);
    }
  }
  _mutex.Lock();
  Node* dummy = _head;
  Node* next = dummy->next;
  if (next == nullptr) {
    _mutex.Unlock();
    return 0;
  }
  *item = next->item;
  next->item = nullptr;
  _head = next;
  _mutex.Unlock();
  delete dummy;
  _count.fetch_sub(1);
  return 1;
}
