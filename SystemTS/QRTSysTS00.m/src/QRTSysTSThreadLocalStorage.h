#ifndef ZYN_SYSTEMTS_QRTSYSTSTHREADLOCALSTORAGE_H
#define ZYN_SYSTEMTS_QRTSYSTSTHREADLOCALSTORAGE_H

#include <atomic>

#include "ZYNResult.h"

// One pointer per thread under small integer keys. Each thread's values live in its
// own map, made on its first SetValue and dropped when the thread ends; the values
// themselves belong to whoever stored them. Usable from static constructors: the
// state is constant-initialised and the POSIX key is made on first use.
class QRTSysTSThreadLocalStorage {
 public:
  static int CreateNewKey();
  static int SetValue(int key, void* value);  // 0, or ZYN_E_FAIL without a POSIX key
  static void* GetValue(int key);

  static void _Init();
  static void _CreateThreadKey();
  static void _ThreadCleanup(void* map);
  static void _Cleanup();

 private:
  static std::atomic<int> S_tlsKey;      // the POSIX key, -1 while none exists
  static std::atomic<int> S_counterKey;  // last key given out
};

extern "C" {
int ZYNSysThreadLocalStorageCreateNewKey();
int ZYNSysThreadLocalStorageSetValue(int key, void* value);  // 0, or -1 on failure
void* ZYNSysThreadLocalStorageGetValue(int key);
}

#endif
