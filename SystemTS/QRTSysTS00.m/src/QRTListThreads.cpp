// QRTListThreads.cpp - the process-wide list of thread objects.
#include "QRTListThreads.h"

#include "QRTMutex.h"
#include "QRTThreads.h"

QRTListThreads ListOfThreads;

void QRTListThreads::CreateMutex() {
  if (_mutex == nullptr) _mutex = new QRTMutex(0, 1, 0);
}

int QRTListThreads::AddThread(QRTThreads* thread) {
  if (_mutex == nullptr) return 1;
  QRTListThreadsElem* element = new QRTListThreadsElem();
  element->thread = thread;
  _mutex->Lock();
  element->previous = _tail;
  if (_tail != nullptr) _tail->next = element;
  if (_head == nullptr) _head = element;
  _tail = element;
  _mutex->Unlock();
  return 0;
}

int QRTListThreads::RemoveThread(QRTThreads* thread) {
  if (_mutex == nullptr) return 1;
  _mutex->Lock();
  QRTListThreadsElem* element = _head;
  while (element != nullptr && element->thread != thread) element = element->next;
  if (element == nullptr) {
    _mutex->Unlock();
    return 1;
  }
  if (element->previous != nullptr) element->previous->next = element->next;
  if (element->next != nullptr) element->next->previous = element->previous;
  if (_head == element) _head = element->next;
  if (_tail == element) _tail = element->previous;
  _mutex->Unlock();
  delete element;
  return 0;
}

QRTThreads* QRTListThreads::FindThread(pthread_t id) {
  if (_mutex == nullptr) return nullptr;
  _mutex->Lock();
  QRTListThreadsElem* element = _head;
  while (element != nullptr && !QRTThreads::CompareThreadId(element->thread->GetThreadId(), id)) {
    element = element->next;
  }
  QRTThreads* found = element != nullptr ? element->thread : nullptr;
  _mutex->Unlock();
  return found;
}

QRTThreads* QRTListThreads::GetFirst() {
  if (_mutex == nullptr) return nullptr;
  _mutex->Lock();
  QRTThreads* first = _head != nullptr ? _head->thread : nullptr;
  _mutex->Unlock();
  return first;
}

QRTThreads* GetFirstThreadsFromMainList() { return ListOfThreads.GetFirst(); }
