#ifndef ZYN_SYSTEMTS_QRTSPINLOCK_H
#define ZYN_SYSTEMTS_QRTSPINLOCK_H

#include <sched.h>

#include <atomic>

// A lock for a few pointer moves, taken by many threads thousands of times a second: a
// thread that finds it taken spins a little, then yields, instead of sleeping in the
// kernel and leaving its processor idle while the holder is done in nanoseconds.
class QRTSpinLock {
 public:
  void Lock() {
    for (int tries = 0; _taken.exchange(true, std::memory_order_acquire); ++tries) {
      while (_taken.load(std::memory_order_relaxed)) {
        if (++tries > 64) {
          sched_yield();
          tries = 0;
        }
      }
    }
  }
  void Unlock() { _taken.store(false, std::memory_order_release); }

 private:
  std::atomic<bool> _taken{false};
};

// Holds a QRTSpinLock for a scope.
class QRTSpinLockScope {
 public:
  explicit QRTSpinLockScope(QRTSpinLock& lock) : _lock(lock) { _lock.Lock(); }
  ~QRTSpinLockScope() { _lock.Unlock(); }
  QRTSpinLockScope(QRTSpinLockScope const&) = delete;
  QRTSpinLockScope& operator=(QRTSpinLockScope const&) = delete;

 private:
  QRTSpinLock& _lock;
};

#endif
