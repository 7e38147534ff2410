// ZYNAdmError.cpp - the per-thread error stack and its records.
#include "ZYNAdmError.h"

#include <pthread.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "DStrings.h"
#include "QRTSysTSThreadLocalStorage.h"
#include "ZYNAdmCodePage.h"
#include "ZYNAdmMsgCatalog.h"

// One node of a thread's stack; the node's stack owns the record.
struct ZYNAdmErrorStack {
  explicit ZYNAdmErrorStack(ZYNAdmError* e) : error(e), newer(nullptr), older(nullptr) {}
  ZYNAdmError* error;
  ZYNAdmErrorStack* newer;
  ZYNAdmErrorStack* older;
};

// One per thread that has pushed anything; freed with its records when the thread ends.
struct ZYNAdmErrorLocalInfo {
  ZYNAdmErrorStack* top = nullptr;
  int count = 0;
};

static void sThreadEnded(void* info);

// `endKey` holds each thread's record a second time, only so that the system calls us
// when the thread ends: the storage under `key` keeps its values past that.
struct ZYNAdmErrorGlobalData {
  ZYNAdmErrorGlobalData()
      : key(QRTSysTSThreadLocalStorage::CreateNewKey()), hasEndKey(pthread_key_create(&endKey, sThreadEnded) == 0) {}
  int key;
  pthread_key_t endKey;
  bool hasEndKey;
};

ZYNAdmErrorGlobalData* ZYNAdmError::S_GlobalData = nullptr;

static void sRelease(ZYNAdmErrorLocalInfo* info) {
  if (info == nullptr) return;
  for (ZYNAdmErrorStack* node = info->top; node != nullptr;) {
    ZYNAdmErrorStack* older = node->older;
    delete node->error;
    delete node;
    node = older;
  }
  ZYNAdmErrorGlobalData* global = ZYNAdmError::S_GlobalData;
  if (QRTSysTSThreadLocalStorage::GetValue(global->key) == info) {
    QRTSysTSThreadLocalStorage::SetValue(global->key, nullptr);
  }
  if (global->hasEndKey) pthread_setspecific(global->endKey, nullptr);
  delete info;
}

static void sThreadEnded(void* info) { sRelease(static_cast<ZYNAdmErrorLocalInfo*>(info)); }

// Key destructors don't run for the thread that calls exit.
static void sProcessEnds() {
  ZYNAdmErrorGlobalData* global = ZYNAdmError::S_GlobalData;
  if (global->hasEndKey) sRelease(static_cast<ZYNAdmErrorLocalInfo*>(pthread_getspecific(global->endKey)));
}

ZYNAdmError::ZYNAdmError(DString message, ZYNAdmErrorType type, int hresult, int errorCode)
    : _message(message), _type(type), _hresult(hresult), _errorCode(errorCode) {}

ZYNAdmError::~ZYNAdmError() {}

// Workers may push their first records at the same moment: a plain flag let the second
// see the first's flag before its data and lose its record. A local static's
// initialisation runs once, and the others wait for it.
void ZYNAdmError::ConstructOnce() {
  static bool const S_Constructed = [] {
    if (S_GlobalData == nullptr) {
      S_GlobalData = new ZYNAdmErrorGlobalData();
      std::atexit(sProcessEnds);
    }
    return true;
  }();
  (void)S_Constructed;
}

ZYNAdmErrorLocalInfo* ZYNAdmError::GetThreadLocalInfo(int create) {
  // Also where only asked, as another thread may be making the data at that moment.
  ConstructOnce();
  if (S_GlobalData == nullptr) return nullptr;
  void* value = QRTSysTSThreadLocalStorage::GetValue(S_GlobalData->key);
  if (value != nullptr || create == 0) return static_cast<ZYNAdmErrorLocalInfo*>(value);
  ZYNAdmErrorLocalInfo* info = new ZYNAdmErrorLocalInfo();
  if (QRTSysTSThreadLocalStorage::SetValue(S_GlobalData->key, info) != 0) {
    delete info;
    return nullptr;
  }
  if (S_GlobalData->hasEndKey) pthread_setspecific(S_GlobalData->endKey, info);
  return static_cast<ZYNAdmErrorLocalInfo*>(QRTSysTSThreadLocalStorage::GetValue(S_GlobalData->key));
}

bool ZYNAdmError::StackError(ZYNAdmError* error) {
  ConstructOnce();
  ZYNAdmErrorLocalInfo* info = GetThreadLocalInfo(1);
  ZYNAdmErrorStack* node = new ZYNAdmErrorStack(error);
  if (info == nullptr) {
    delete node;
    delete error;
    return false;
  }
  node->older = info->top;
  if (info->top != nullptr) info->top->newer = node;
  info->top = node;
  ++info->count;
  return true;
}

void ZYNAdmError::Push(DString message, ZYNAdmErrorType type, int hresult, int errorCode) {
  StackError(new ZYNAdmError(message, type, hresult, errorCode));
}

void ZYNAdmError::Push(DString catalog, DString key, DStrings const* parameters, ZYNAdmErrorType type, int hresult,
                       int errorCode) {
  Push(ZYNAdmMsgCatalog::BuildMessage(catalog, key, parameters, nullptr), type, hresult, errorCode);
}

void ZYNAdmError::Push(DString message) { Push(message, ZYNAdmErrorTypeApplication, static_cast<int>(0x80004005u), 1); }

void ZYNAdmError::PushGetLastError(DString message, ZYNAdmErrorType type, int hresult) {
  int err = errno;
  if (err == 0) return;
  DString text(message);
  text.Append(DString(L"\nError num: "), DString::FromNum(err, "%d"));
  text.Append(DString(L"\n"), ZYNAdmCodePage::ConvertStrToUcs(std::strerror(err)));
  StackError(new ZYNAdmError(text, type, hresult, err));
}

DString ZYNAdmError::Pop() {
  DString result;
  ZYNAdmErrorLocalInfo* info = GetThreadLocalInfo(0);
  if (info == nullptr || info->top == nullptr) return result;
  ZYNAdmErrorStack* node = info->top;
  info->top = node->older;
  if (info->top != nullptr) info->top->newer = nullptr;
  --info->count;
  ZYNAdmError* error = node->error;
  delete node;
  if (error != nullptr) {
    result = error->_message;
    delete error;
  }
  return result;
}

ZYNAdmError* ZYNAdmError::GetErrorAtIndex(int index) {
  ZYNAdmErrorLocalInfo* info = GetThreadLocalInfo(0);
  if (info == nullptr || info->top == nullptr || index < 0 || index >= info->count) return nullptr;
  ZYNAdmErrorStack* node = info->top;
  for (int i = 0; i < index && node != nullptr; ++i) node = node->older;
  return node == nullptr ? nullptr : node->error;
}

DString ZYNAdmError::GetError(int index) {
  ZYNAdmError* error = GetErrorAtIndex(index);
  return error == nullptr ? DString() : error->_message;
}

int ZYNAdmError::GetErrorCode(int index) {
  ZYNAdmError* error = GetErrorAtIndex(index);
  return error == nullptr ? 0 : error->_errorCode;
}

int ZYNAdmError::GetHRESULT(int index) {
  ZYNAdmError* error = GetErrorAtIndex(index);
  return error == nullptr ? 0 : error->_hresult;
}

int ZYNAdmError::GetErrorType(int index) {
  ZYNAdmError* error = GetErrorAtIndex(index);
  return error == nullptr ? 0 : static_cast<int>(error->_type);
}

void ZYNAdmError::FlushStack() {
  ZYNAdmErrorLocalInfo* info = GetThreadLocalInfo(0);
  if (info == nullptr || info->top == nullptr) return;
  for (int destroyed = 0; destroyed < info->count && info->top != nullptr; ++destroyed) {
    ZYNAdmErrorStack* node = info->top;
    info->top = node->older;
    delete node->error;
    delete node;
  }
  info->top = nullptr;
  info->count = 0;
}

int ZYNAdmError::GetStackSize() {
  ZYNAdmErrorLocalInfo* info = GetThreadLocalInfo(0);
  return info == nullptr ? 0 : info->count;
}

bool ZYNAdmError::IsStackEmpty() {
  ZYNAdmErrorLocalInfo* info = GetThreadLocalInfo(0);
  return info == nullptr || info->count == 0;
}
