#ifndef ZYN_SYSTEMTS_ZYNSYSKERNELSEMAPHORE_H
#define ZYN_SYSTEMTS_ZYNSYSKERNELSEMAPHORE_H

#include <semaphore.h>

// The kernel semaphore calls the semaphores are written against, over POSIX semaphores.
// Results keep the kernel's shape: 0 success, kTimedOut for an expired limit, and a
// positive errno value for anything else.
class ZYNSysKernelSemaphore {
 public:
  typedef sem_t* Handle;
  static const int kTimedOut = 49;

  // The own task; only carried along.
  static int TaskSelf();
  static int Create(int task, Handle* semaphore, int policy, int value);
  static int Destroy(int task, Handle semaphore);
  // Gives back the memory of a semaphore nobody destroys; a kernel port would just stay.
  static void Release(Handle semaphore);
  static int Wait(Handle semaphore);
  // The limit is relative: seconds plus nanoseconds from now.
  static int TimedWait(Handle semaphore, unsigned int seconds, int nanoseconds);
  static int Signal(Handle semaphore);
};

#endif
