// ZYNSysIConvTSWrap.cpp - iconv descriptors, one set per thread.
#include "ZYNSysIConvTSWrap.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "QRTMutex.h"
#include "QRTSysMTGlobalMutex.h"
#include "QRTSysTSThreadLocalStorage.h"
#include "ZYNResult.h"
#include "ZYNSysTSDataQueue.h"

namespace {

// A registered pair of code set names; pairs are never removed before the session ends.
struct ZYNSysIConvPair {
  char* first;
  char* second;
  unsigned int key;
  ZYNSysIConvPair* next;
};

// One thread's descriptors for one pair, in its most-recently-used list.
struct ZYNSysIConvThreadRecord {
  unsigned int key;
  int openFailed;
  iconv_t forward;
  iconv_t reverse;
  ZYNSysIConvThreadRecord* next;
};

}  // namespace

static iconv_t const S_noDesc = reinterpret_cast<iconv_t>(-1);

// All constant-initialised: the first conversion may come from any static constructor.
static ZYNSysIConvPair* S_CSToIConvDescId = nullptr;
static QRTMutex* S_CSToIConvDescIdLock = nullptr;
static unsigned int S_KeyGen = 0;
static ZYNSysTSDataQueue* S_GCQueue = nullptr;
static std::atomic<unsigned int> IConvDescTLSKey{0xFFFFFFFFu};
static std::atomic<int> S_lifeCycleStateTerminate{0};
static std::atomic<bool> bEndTraceToPrint{true};

char const* ZYNSysIConvTSWrap::IConvName(char const* name) {
  if (name == nullptr || std::strcmp(name, ZYN_ICONV_PIVOT) != 0) return name;
    // glibc has no name for machine-order UCS-2 that is sure to carry no byte order mark,
    // so the pivot is spelled with the byte order this build runs in.
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  return "UCS-2BE";
#else
  return "UCS-2LE";
#endif
}

static bool sKeyExists(unsigned int key) { return key < 0xFFFFFFFEu; }

// Both objects come from the global mutex's double-checked creation, so racing first
// callers make one of each.
static ZYNSysTSDataQueue* sMakeQueue() { return ZYNSysTSDataQueue::CreateEmptyQueue(0, 4096); }

void ZYNSysIConvTSWrap::sInitIConvTS(void*) {
  ZYNCreateMutex(S_CSToIConvDescIdLock, 1);
  ZYNMemoryBarrier();
  if (__atomic_load_n(&S_GCQueue, __ATOMIC_ACQUIRE) != nullptr) return;
  QRTSysMTGlobalMutex(QRTSysMTGlobalMutexLock, nullptr, 0);
  if (__atomic_load_n(&S_GCQueue, __ATOMIC_ACQUIRE) == nullptr)
    __atomic_store_n(&S_GCQueue, sMakeQueue(), __ATOMIC_RELEASE);
  QRTSysMTGlobalMutex(QRTSysMTGlobalMutexUnlock, nullptr, 0);
}

static QRTMutex* sLock() { return __atomic_load_n(&S_CSToIConvDescIdLock, __ATOMIC_ACQUIRE); }
static ZYNSysTSDataQueue* sQueue() { return __atomic_load_n(&S_GCQueue, __ATOMIC_ACQUIRE); }

int ZYNSysIConvTSWrap::Open(char const* toCode, char const* fromCode, IConvDesc_t& handle) {
  if (toCode == nullptr || fromCode == nullptr) return ZYN_E_FAIL;
  if ((S_lifeCycleStateTerminate.load() & 1) != 0) return ZYN_E_FAIL;
  sInitIConvTS(nullptr);
  QRTMutex* lock = sLock();
  lock->Lock();
  int result = ZYN_S_OK;
  ZYNSysIConvPair* pair = S_CSToIConvDescId;
  for (; pair != nullptr; pair = pair->next) {
    if (std::strcmp(pair->first, fromCode) == 0 && std::strcmp(pair->second, toCode) == 0) {
      handle = pair->key;
      break;
    }
    if (std::strcmp(pair->first, toCode) == 0 && std::strcmp(pair->second, fromCode) == 0) {
      handle = pair->key + 1;
      break;
    }
  }
  if (pair == nullptr) {
    pair = new ZYNSysIConvPair{strdup(fromCode), strdup(toCode), S_KeyGen, S_CSToIConvDescId};
    if (pair->first == nullptr || pair->second == nullptr) {
      std::free(pair->first);
      std::free(pair->second);
      delete pair;
      result = ZYN_E_FAIL;
    } else {
      S_KeyGen += 2;
      S_CSToIConvDescId = pair;
      handle = pair->key;
    }
  }
  lock->Unlock();
  return result;
}

static iconv_t sDescOf(ZYNSysIConvThreadRecord const* record, IConvDesc_t handle) {
  if (record->openFailed != 0) return S_noDesc;
  return (handle & 1u) == 0 ? record->forward : record->reverse;
}

// The thread's record for the key, moved to the head of its list.
static ZYNSysIConvThreadRecord* sFindOwnRecord(unsigned int tlsKey, unsigned int key) {
  if (!sKeyExists(tlsKey)) return nullptr;
  auto* head = static_cast<ZYNSysIConvThreadRecord*>(QRTSysTSThreadLocalStorage::GetValue(static_cast<int>(tlsKey)));
  ZYNSysIConvThreadRecord* previous = nullptr;
  for (ZYNSysIConvThreadRecord* record = head; record != nullptr; previous = record, record = record->next) {
    if (record->key != key) continue;
    if (previous != nullptr) {
      previous->next = record->next;
      record->next = head;
      QRTSysTSThreadLocalStorage::SetValue(static_cast<int>(tlsKey), record);
    }
    return record;
  }
  return nullptr;
}

// Under the lock: the names of the pair (they live until the session ends) and the
// thread-local key, made on first need.
static bool sLookUpPair(unsigned int key, char const*& first, char const*& second, unsigned int& tlsKey) {
  QRTMutex* lock = sLock();
  lock->Lock();
  ZYNSysIConvPair const* pair = S_CSToIConvDescId;
  while (pair != nullptr && pair->key != key) pair = pair->next;
  if (pair != nullptr) {
    first = pair->first;
    second = pair->second;
    tlsKey = IConvDescTLSKey.load();
    if (!sKeyExists(tlsKey)) {
      tlsKey = static_cast<unsigned int>(QRTSysTSThreadLocalStorage::CreateNewKey());
      IConvDescTLSKey.store(tlsKey);
    }
  }
  lock->Unlock();
  return pair != nullptr;
}

iconv_t ZYNSysIConvTSWrap::GetIConvDesc(IConvDesc_t handle) {
  if (S_lifeCycleStateTerminate.load() == 1) {
    if (bEndTraceToPrint.exchange(false)) {
      std::fputs("[ZYNSysIConvTSWrap] INFO: session is ending. Support for MBCS has been dropped in a earlier stage\n.",
                 stdout);
      std::fflush(stdout);
    }
    return S_noDesc;
  }
  unsigned int key = handle & ~1u;
  ZYNSysIConvThreadRecord* record = sFindOwnRecord(IConvDescTLSKey.load(), key);
  if (record != nullptr) return sDescOf(record, handle);

  char const* first = nullptr;
  char const* second = nullptr;
  unsigned int tlsKey = 0;
  if (sLock() == nullptr || !sLookUpPair(key, first, second, tlsKey)) {
    std::fputs("[ZYNSysIConvTSWrap] The input IConvDesc_t handle is invalid.\n", stderr);
    std::fflush(stderr);
    return S_noDesc;
  }

  // The record is kept even when opening fails, so this thread does not try again.
  int slot = static_cast<int>(tlsKey);
  auto* head = static_cast<ZYNSysIConvThreadRecord*>(QRTSysTSThreadLocalStorage::GetValue(slot));
  record = new ZYNSysIConvThreadRecord{key, 1, S_noDesc, S_noDesc, head};
  QRTSysTSThreadLocalStorage::SetValue(slot, record);
  sInitIConvTS(nullptr);
  sQueue()->PushFirst(record);

  iconv_t forward = iconv_open(IConvName(second), IConvName(first));
  iconv_t reverse = iconv_open(IConvName(first), IConvName(second));
  if (forward == S_noDesc || reverse == S_noDesc) {
    if (forward != S_noDesc) iconv_close(forward);
    if (reverse != S_noDesc) iconv_close(reverse);
    std::fprintf(stderr, "[ZYNSysIConvTSWrap] failed to initialize converters for conversion %s <-> %s\n", first,
                 second);
    std::fflush(stderr);
    return S_noDesc;
  }
  record->forward = forward;
  record->reverse = reverse;
  record->openFailed = 0;
  return sDescOf(record, handle);
}

void ZYNSysIConvTSWrap::sDeinitIConvTS(int) {
  S_lifeCycleStateTerminate.store(1);
  ZYNSysTSDataQueue* queue = sQueue();
  if (queue != nullptr) {
    std::fputs("[ZYNSysIConvTSWrap] WARNING: from this point, conversions are no longer supported.\n", stdout);
    std::fflush(stdout);
    void* item = nullptr;
    while (queue->PopLast(&item, 0) == 1) {
      auto* record = static_cast<ZYNSysIConvThreadRecord*>(item);
      if (record->openFailed == 0) {
        if (record->forward != S_noDesc) iconv_close(record->forward);
        if (record->reverse != S_noDesc) iconv_close(record->reverse);
      }
      delete record;
    }
    __atomic_store_n(&S_GCQueue, nullptr, __ATOMIC_RELEASE);
    delete queue;
  }
  // Threads' lists now point at freed records; the terminate flag keeps them unread.
  QRTMutex* lock = sLock();
  if (lock != nullptr) lock->Lock();
  while (S_CSToIConvDescId != nullptr) {
    ZYNSysIConvPair* pair = S_CSToIConvDescId;
    S_CSToIConvDescId = pair->next;
    std::free(pair->first);
    std::free(pair->second);
    delete pair;
  }
  if (lock == nullptr) return;
  lock->Unlock();
  __atomic_store_n(&S_CSToIConvDescIdLock, nullptr, __ATOMIC_RELEASE);
  delete lock;
}
