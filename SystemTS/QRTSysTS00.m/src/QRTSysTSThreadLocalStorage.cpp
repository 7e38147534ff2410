// QRTSysTSThreadLocalStorage.cpp - integer keys with one pointer value per thread.
#include "QRTSysTSThreadLocalStorage.h"

#include <pthread.h>
#include <stdlib.h>

#include "QRTSysTSHashMapOfIntToVoidPtr.h"
#include "ZYNResult.h"

// Constant-initialised, so that static constructors of any unit may use the storage.
std::atomic<int> QRTSysTSThreadLocalStorage::S_tlsKey(-1);
std::atomic<int> QRTSysTSThreadLocalStorage::S_counterKey(0);
static pthread_once_t S_keyOnce = PTHREAD_ONCE_INIT;

static QRTSysTSHashMapOfIntToVoidPtr* sThreadMap(int tlsKey) {
  return static_cast<QRTSysTSHashMapOfIntToVoidPtr*>(pthread_getspecific(static_cast<pthread_key_t>(tlsKey)));
}

int QRTSysTSThreadLocalStorage::CreateNewKey() { return S_counterKey.fetch_add(1) + 1; }

void QRTSysTSThreadLocalStorage::_Init() { pthread_once(&S_keyOnce, _CreateThreadKey); }

void QRTSysTSThreadLocalStorage::_CreateThreadKey() {
  pthread_key_t key;
  if (pthread_key_create(&key, _ThreadCleanup) != 0) {
    S_tlsKey.store(-1);
    return;
  }
  S_tlsKey.store(static_cast<int>(key));
  atexit(_Cleanup);
}

int QRTSysTSThreadLocalStorage::SetValue(int key, void* value) {
  _Init();
  int tlsKey = S_tlsKey.load();
  if (tlsKey == -1) return ZYN_E_FAIL;

  QRTSysTSHashMapOfIntToVoidPtr* map = sThreadMap(tlsKey);
  if (map == nullptr) {
    map = new QRTSysTSHashMapOfIntToVoidPtr(12, 0.75f);
    if (pthread_setspecific(static_cast<pthread_key_t>(tlsKey), map) != 0) {
      delete map;
      return ZYN_E_FAIL;
    }
  }
  map->Put(key, value);
  return ZYN_S_OK;
}

// No _Init here: a thread that never set a value has no map, key or not.
void* QRTSysTSThreadLocalStorage::GetValue(int key) {
  int tlsKey = S_tlsKey.load();
  if (tlsKey == -1) return nullptr;
  QRTSysTSHashMapOfIntToVoidPtr* map = sThreadMap(tlsKey);
  if (map == nullptr) return nullptr;
  void* value = nullptr;
  map->Get(key, value);
  return value;
}

// Runs as the key's destructor when a thread ends; the values stay with their owners.
void QRTSysTSThreadLocalStorage::_ThreadCleanup(void* map) { delete static_cast<QRTSysTSHashMapOfIntToVoidPtr*>(map); }

// Key destructors don't run for the thread that calls exit, so its map goes here.
void QRTSysTSThreadLocalStorage::_Cleanup() {
  int tlsKey = S_tlsKey.exchange(-1);
  if (tlsKey == -1) return;
  pthread_key_t key = static_cast<pthread_key_t>(tlsKey);
  delete sThreadMap(tlsKey);
  pthread_setspecific(key, nullptr);
  pthread_key_delete(key);
}

int ZYNSysThreadLocalStorageCreateNewKey() { return QRTSysTSThreadLocalStorage::CreateNewKey(); }

int ZYNSysThreadLocalStorageSetValue(int key, void* value) {
  return QRTSysTSThreadLocalStorage::SetValue(key, value) == ZYN_S_OK ? 0 : -1;
}

void* ZYNSysThreadLocalStorageGetValue(int key) { return QRTSysTSThreadLocalStorage::GetValue(key); }
