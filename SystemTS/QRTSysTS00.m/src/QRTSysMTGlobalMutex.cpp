// QRTSysMTGlobalMutex.cpp - the global mutexes that guard lazy creation of shared objects.
#include "QRTSysMTGlobalMutex.h"

#include <atomic>

#include "QRTMutex.h"
#include "QRTResourceLock.h"

static std::atomic<QRTMutex*> S_myGlobalMutex{nullptr};
static std::atomic<QRTMutex*> S_QRTSysMTGM{nullptr};

QRTMutex* GetMyGlobalMutex() {
  QRTMutex* mutex = S_myGlobalMutex.load(std::memory_order_acquire);
  if (mutex != nullptr) return mutex;
  QRTMutex* fresh = new QRTMutex(0, 1, 0);
  if (S_myGlobalMutex.compare_exchange_strong(mutex, fresh, std::memory_order_acq_rel)) return fresh;
  delete fresh;
  return mutex;
}

static int sCacheGlobalMutex() {
  S_QRTSysMTGM.store(GetMyGlobalMutex(), std::memory_order_release);
  return 0;
}
[[maybe_unused]] static int S_globalMutexCached = sCacheGlobalMutex();

int QRTSysMTGlobalMutex(int command, char const* name, int flag) {
  if (name != nullptr || flag != 0) return -1;
  QRTMutex* mutex = S_QRTSysMTGM.load(std::memory_order_acquire);
  if (mutex == nullptr) {
    mutex = GetMyGlobalMutex();
    if (command == QRTSysMTGlobalMutexUnlock) return 0;
    if (mutex == nullptr) return -1;
    S_QRTSysMTGM.store(mutex, std::memory_order_release);
  }
  switch (command) {
    case QRTSysMTGlobalMutexLock:
      mutex->Lock();
      if (S_QRTSysMTGM.load(std::memory_order_acquire) != mutex) {
        mutex->Unlock();
        return -1;
      }
      return 1;
    case QRTSysMTGlobalMutexUnlock:
      mutex->Unlock();
      return 0;
    case QRTSysMTGlobalMutexDestroy:
      mutex->Lock();
      S_QRTSysMTGM.store(nullptr, std::memory_order_release);
      // A later GetMyGlobalMutex makes a new mutex rather than hand out this one.
      S_myGlobalMutex.compare_exchange_strong(mutex, nullptr, std::memory_order_acq_rel);
      mutex->Unlock();
      delete mutex;
      return 0;
    default:
      return -1;
  }
}

// ThreadSanitizer doesn't model fences, and GCC says so under -fsanitize=thread. The fence
// stays: nothing here relies on it for what the sanitizer checks, since the pointers it
// orders are also read and written with atomic operations.
#if defined(__GNUC__) && !defined(__clang__) && defined(__SANITIZE_THREAD__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wtsan"
#endif
void ZYNMemoryBarrier() { std::atomic_thread_fence(std::memory_order_seq_cst); }
#if defined(__GNUC__) && !defined(__clang__) && defined(__SANITIZE_THREAD__)
#pragma GCC diagnostic pop
#endif

// Double-checked creation. The caller's pointer is read and written with atomic
// built-ins so that a racing reader sees either null or a finished object.
template <typename T, typename Make>
static void sCreateOnce(T*& slot, unsigned int mode, Make make) {
  if (mode == 0) {
    slot = make();
    return;
  }
  if (mode != 1) return;
  ZYNMemoryBarrier();
  if (__atomic_load_n(&slot, __ATOMIC_ACQUIRE) != nullptr) return;
  QRTSysMTGlobalMutex(QRTSysMTGlobalMutexLock, nullptr, 0);
  if (__atomic_load_n(&slot, __ATOMIC_ACQUIRE) == nullptr) {
    T* made = make();
    ZYNMemoryBarrier();
    __atomic_store_n(&slot, made, __ATOMIC_RELEASE);
  }
  QRTSysMTGlobalMutex(QRTSysMTGlobalMutexUnlock, nullptr, 0);
}

void ZYNCreateMutex(QRTMutex*& mutex, unsigned int mode) {
  sCreateOnce(mutex, mode, [] { return new QRTMutex(0, 1, 0); });
}

void ZYNCreateResourceLock(QRTResourceLock*& lock, unsigned int mode) {
  sCreateOnce(lock, mode, [] { return new QRTResourceLock(0); });
}
