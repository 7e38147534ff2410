#ifndef ZYN_SYSTEMTS_QRTLISTTHREADS_H
#define ZYN_SYSTEMTS_QRTLISTTHREADS_H

#include <pthread.h>

class QRTMutex;
class QRTThreads;

struct QRTListThreadsElem {
  QRTThreads* thread;
  QRTListThreadsElem* next;
  QRTListThreadsElem* previous;
};

// The list of live thread objects. Constant-initialised and never destroyed, so thread
// objects made or deleted by other static constructors and destructors find it intact.
class QRTListThreads {
 public:
  // Makes the mutex once; the first thread object calls it before anything is listed.
  void CreateMutex();
  int AddThread(QRTThreads* thread);
  // 0 when found and removed, 1 otherwise.
  int RemoveThread(QRTThreads* thread);
  QRTThreads* FindThread(pthread_t id);
  QRTThreads* GetFirst();

  QRTListThreadsElem* _head = nullptr;
  QRTListThreadsElem* _tail = nullptr;
  QRTMutex* _mutex = nullptr;
};

extern QRTListThreads ListOfThreads;

QRTThreads* GetFirstThreadsFromMainList();

#endif
