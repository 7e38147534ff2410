// ZYNSysContext.cpp - the per-thread context handed from a thread to the threads it starts.
#include "ZYNSysContext.h"

#include <atomic>

#include "QRTSysTSThreadLocalStorage.h"

// The storage functions are direct calls in one program; no lookup by name is needed.
static std::atomic<void*> S_rootContext{nullptr};
static std::atomic<int> S_contextKey{0};

int ZYNSysContextInitialize() { return -1; }

int ZYNSysContextFinalize() { return -1; }

void* ZYNSysContextGetRootContext() { return S_rootContext.load(std::memory_order_acquire); }

void* ZYNSysContextGetCurrentContext() {
  int key = S_contextKey.load(std::memory_order_acquire);
  void* context = key != 0 ? ZYNSysThreadLocalStorageGetValue(key) : nullptr;
  if (context != nullptr) return context;
  return ZYNSysContextGetRootContext();
}

static int sContextKey() {
  int key = S_contextKey.load(std::memory_order_acquire);
  if (key != 0) return key;
  // Keys are never reused, so a loser of the race simply leaves its key unused.
  int fresh = ZYNSysThreadLocalStorageCreateNewKey();
  if (S_contextKey.compare_exchange_strong(key, fresh, std::memory_order_acq_rel)) return fresh;
  return key;
}

int ZYNSysContextSetCurrentContext(void* context) {
  if (context != nullptr) {
    void* none = nullptr;
    S_rootContext.compare_exchange_strong(none, context, std::memory_order_acq_rel);
  }
  return ZYNSysThreadLocalStorageSetValue(sContextKey(), context);
}
