// ZYNSysCLocale.cpp - the C library locale, set once and read by the code pages.
#include "ZYNSysCLocale.h"

#include <atomic>
#include <clocale>
#include <cstdlib>
#include <cstring>

#include "QRTResourceLock.h"
#include "QRTSysMTGlobalMutex.h"
#include "ZYNResult.h"

// Null stays null; the copy is freed with free.
static char* sDup(char const* text) { return text == nullptr ? nullptr : strdup(text); }

static QRTResourceLock* S_LocaleSRWLock = nullptr;
static std::atomic<bool> S_localeInitPending{false};
static std::atomic<char*> S_localeBeforeLoad{nullptr};

// Made on first need as well, for a ThreadLC in an earlier static constructor.
static QRTResourceLock* sLocaleLock() {
  ZYNCreateResourceLock(S_LocaleSRWLock, 1);
  return S_LocaleSRWLock;
}
[[maybe_unused]] static QRTResourceLock* S_localeLockMade = sLocaleLock();

static char const* sInitLocaleEnvironment(void* force) {
  if (force != nullptr) S_localeInitPending.store(false);
  if (S_localeInitPending.exchange(true)) return nullptr;
  if (S_localeBeforeLoad.load() == nullptr) {
    char* before = sDup(std::setlocale(LC_ALL, nullptr));
    char* expected = nullptr;
    if (!S_localeBeforeLoad.compare_exchange_strong(expected, before)) std::free(before);
  }
  return std::setlocale(LC_ALL, "");
}

char const* ZYNSysCLocale::SetLocale(int category, char const* locale) {
  sInitLocaleEnvironment(nullptr);
  return std::setlocale(category, locale);
}

char const* ZYNSysCLocale::InitLocaleFromEnvironment() {
  static int S_force = 1;
  return sInitLocaleEnvironment(&S_force);
}

lconv* ZYNSysCLocale::GetLCConv() {
  QRTResourceLock* lock = sLocaleLock();
  lock->ReadLock();
  lconv* copy = new lconv(*std::localeconv());
  lock->ReadUnlock();
  return copy;
}

char const* ZYNSysCLocale::GetLocaleBeforeLoad() { return S_localeBeforeLoad.load(); }

ZYNSysCLocale::ThreadLC::ThreadLC(int category, char const* locale, int* result)
    : _category(category), _savedLocale(nullptr), _wantedLocale(nullptr) {
  int outcome = ZYN_E_FAIL;
  if (locale == nullptr) {
    if (result != nullptr) *result = outcome;
    return;
  }
  QRTResourceLock* lock = sLocaleLock();
  lock->WriteLock();
  char const* present = std::setlocale(category, nullptr);
  if (present != nullptr && std::strcmp(present, locale) == 0) outcome = 1;
  if (present != nullptr && outcome != 1) {
    _savedLocale = sDup(present);
    if (std::setlocale(category, locale) != nullptr) outcome = 0;
    _wantedLocale = sDup(locale);
  }
  // The lock stays taken only while a change is in force.
  if (outcome != 0) {
    std::free(_savedLocale);
    std::free(_wantedLocale);
    _savedLocale = _wantedLocale = nullptr;
    lock->WriteUnlock();
  }
  if (result != nullptr) *result = outcome;
}

ZYNSysCLocale::ThreadLC::~ThreadLC() { Reset(); }

void ZYNSysCLocale::ThreadLC::Reset() {
  if (_savedLocale == nullptr || _wantedLocale == nullptr) return;
  std::setlocale(_category, _savedLocale);
  sLocaleLock()->WriteUnlock();
  std::free(_savedLocale);
  std::free(_wantedLocale);
  _savedLocale = _wantedLocale = nullptr;
}
