// ZYNSysKernelSemaphore.cpp - POSIX semaphores standing in for the kernel semaphores of the design.
#include "ZYNSysKernelSemaphore.h"

#include <unistd.h>

#include <cerrno>
#include <ctime>

int ZYNSysKernelSemaphore::TaskSelf() { return static_cast<int>(getpid()); }

int ZYNSysKernelSemaphore::Create(int, Handle* semaphore, int, int value) {
  if (semaphore == nullptr || value < 0) return EINVAL;
  sem_t* made = new sem_t;
  if (sem_init(made, 0, static_cast<unsigned int>(value)) != 0) {
    int error = errno;
    delete made;
    return error;
  }
  *semaphore = made;
  return 0;
}

int ZYNSysKernelSemaphore::Destroy(int, Handle semaphore) {
  if (semaphore == nullptr) return EINVAL;
  sem_destroy(semaphore);
  delete semaphore;
  return 0;
}

void ZYNSysKernelSemaphore::Release(Handle semaphore) { delete semaphore; }

int ZYNSysKernelSemaphore::Wait(Handle semaphore) {
  while (sem_wait(semaphore) != 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

// sem_timedwait wants an absolute time on the realtime clock.
int ZYNSysKernelSemaphore::TimedWait(Handle semaphore, unsigned int seconds, int nanoseconds) {
  timespec deadline;
  clock_gettime(CLOCK_REALTIME, &deadline);
  deadline.tv_sec += static_cast<time_t>(seconds) + nanoseconds / 1000000000;
  deadline.tv_nsec += nanoseconds % 1000000000;
  if (deadline.tv_nsec >= 1000000000) {
    deadline.tv_nsec -= 1000000000;
    deadline.tv_sec += 1;
  }
  while (sem_timedwait(semaphore, &deadline) != 0) {
    if (errno == ETIMEDOUT) return kTimedOut;
    if (errno != EINTR) return errno;
  }
  return 0;
}

int ZYNSysKernelSemaphore::Signal(Handle semaphore) { return sem_post(semaphore) == 0 ? 0 : errno; }
