// ZYNSysNLSCore.cpp - the language environment: the SUPPLANG_K6 table, the locale and its code page.
#include "ZYNSysNLSCore.h"

#include <unistd.h>

#include <atomic>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "DStrings.h"
#include "QRTSysMTGlobalMutex.h"
#include "ZYNResult.h"
#include "ZYNSysCLocale.h"
#include "ZYNSysLifeCycle.h"

extern "C" void __assert_fail(char const* assertion, char const* file, unsigned int line, char const* function) noexcept
    __attribute__((__noreturn__));

// Null stays null; the copy is freed with free.
static char* sDup(char const* text) { return text == nullptr ? nullptr : strdup(text); }

static const int S_rowsPerGrowth = 32;
static const int S_lineSize = 512;
static const int S_maxCallbacks = 4;

// The table: published only once fully read, so a reader without the lock sees all of it.
static std::atomic<ZYNSysNLSEntry*> S_suppLangData{nullptr};
static int S_szSuppLangData = 0;
static int S_suppLangCapacity = 0;  // rows allocated; a last row without "*END*" isn't counted

// The environment in force and what goes with it; changed under the global mutex.
static ZYNSysNLSEntry S_EnvNLSData = {nullptr, nullptr, nullptr, nullptr};
static int S_MultiByteCharMaxSize = 1;
static char* S_DecimalPoint = nullptr;
static char* S_CLocaleRequired = nullptr;
static std::atomic<bool> S_bInitPending{false};
// Set when a run has finished, so that other threads wait for it on the global mutex
// instead of reading an entry being replaced.
static std::atomic<bool> S_bInitComplete{false};
static void (*S_pFnCBArray[S_maxCallbacks])() = {nullptr, nullptr, nullptr, nullptr};
static int S_pFnCBArrayLen = 0;
static char* S_PreferredLanguage = nullptr;

static std::atomic<int> S_traceSwitch{-1};

static char const S_defaultLanguage[] = "English";
static char const S_defaultTerritory[] = "United_States";
static char const S_defaultLocale[] = "en_US";
static char const S_defaultCodePage[] = "ISO8859-1";

static void sPrint(FILE* stream, char const* format, ...) {
  int on = S_traceSwitch.load();
  if (on < 0) {
    on = std::getenv("ZYNSysNLSCoreTrace") != nullptr ? 1 : 0;
    S_traceSwitch.store(on);
  }
  if (on == 0) return;
  va_list arguments;
  va_start(arguments, format);
  std::vfprintf(stream, format, arguments);
  va_end(arguments);
  std::fputc('\n', stream);
  std::fflush(stream);
}

static char const* sShown(char const* text) { return text != nullptr ? text : "(null)"; }

static void sReplace(char*& field, char const* text) {
  char* copy = sDup(text);
  std::free(field);
  field = copy;
}

static void sFreeEntry(ZYNSysNLSEntry& entry) {
  for (char** field : {&entry.language, &entry.territory, &entry.locale, &entry.codePage}) {
    std::free(*field);
    *field = nullptr;
  }
}

static void sSetEnvEntry(char const* language, char const* territory, char const* locale, char const* codePage) {
  sReplace(S_EnvNLSData.language, language);
  sReplace(S_EnvNLSData.territory, territory);
  sReplace(S_EnvNLSData.locale, locale);
  sReplace(S_EnvNLSData.codePage, codePage);
}

static bool sLockGlobal() { return QRTSysMTGlobalMutex(QRTSysMTGlobalMutexLock, nullptr, 0) == 1; }

static void sUnlockGlobal(bool locked) {
  if (locked) QRTSysMTGlobalMutex(QRTSysMTGlobalMutexUnlock, nullptr, 0);
}

// ---- The SUPPLANG_K6 file ----

// The first file that opens among the directories of the variable, each followed by
// `tail`. The variable's list and each path are limited to 512 bytes.
static FILE* sOpenFromList(char const* variable, char const* tail) {
  char const* value = std::getenv(variable);
  if (value == nullptr) return nullptr;
  char list[S_lineSize];
  std::snprintf(list, sizeof list, "%s", value);
  char* rest = nullptr;
  for (char* dir = strtok_r(list, ":", &rest); dir != nullptr; dir = strtok_r(nullptr, ":", &rest)) {
    char path[S_lineSize];
    int length = std::snprintf(path, sizeof path, "%s/%s", dir, tail);
    // A cut path would name another file.
    if (length < 0 || length >= static_cast<int>(sizeof path)) continue;
    FILE* file = std::fopen(path, "r");
    if (file != nullptr) return file;
  }
  return nullptr;
}

// The table installed with the executable: <prefix>/bin/.. + the data folder, wherever
// the prefix is (a package's /usr, a make install's /usr/local, a scratch root).
static FILE* sOpenInstalled() {
#ifdef ZYN_INSTALLED_REFFILES
  char executable[S_lineSize];
  ssize_t length = readlink("/proc/self/exe", executable, sizeof executable - 1);
  if (length <= 0) return nullptr;
  executable[length] = 0;
  char* slash = std::strrchr(executable, '/');
  if (slash == nullptr) return nullptr;
  *slash = 0;
  char path[S_lineSize];
  int size = std::snprintf(path, sizeof path, "%s/%s/NLS/SUPPLANG_K6", executable, ZYN_INSTALLED_REFFILES);
  if (size < 0 || size >= static_cast<int>(sizeof path)) return nullptr;
  return std::fopen(path, "r");
#else
  return nullptr;
#endif
}

static FILE* sOpenSupplang() {
  FILE* file = sOpenFromList("QRTReffilesPath", "NLS/SUPPLANG_K6");
  if (file != nullptr) return file;
  file = sOpenFromList("QRTInstallPath", "reffiles/NLS/SUPPLANG_K6");
  if (file != nullptr) return file;
  // Only where neither variable is set: a variable set says where to look, or not to.
  if (std::getenv("QRTReffilesPath") != nullptr || std::getenv("QRTInstallPath") != nullptr) return nullptr;
  return sOpenInstalled();
}

// Fields are separated by blanks; a missing one is empty.
static void sParseRow(char* line, ZYNSysNLSEntry& row) {
  char* rest = nullptr;
  char* fields[4] = {nullptr, nullptr, nullptr, nullptr};
  for (int i = 0; i < 4; ++i) fields[i] = strtok_r(i == 0 ? line : nullptr, " \t\r\n", &rest);
  row.language = sDup(fields[0] != nullptr ? fields[0] : "");
  row.territory = sDup(fields[1] != nullptr ? fields[1] : "");
  row.locale = sDup(fields[2] != nullptr ? fields[2] : "");
  row.codePage = sDup(fields[3] != nullptr ? fields[3] : "");
}

static bool sSkipToSection(FILE* file, char* line) {
  while (std::fgets(line, S_lineSize, file) != nullptr) {
    if (std::strstr(line, ZYN_SUPPLANG_SECTION) != nullptr) return true;
  }
  sPrint(stderr, "%s OS section not found", ZYN_SUPPLANG_SECTION);
  return false;
}

static bool sGrowRows(ZYNSysNLSEntry*& rows, int& capacity) {
  size_t wanted = static_cast<size_t>(capacity + S_rowsPerGrowth);
  auto* grown = static_cast<ZYNSysNLSEntry*>(std::realloc(rows, wanted * sizeof(ZYNSysNLSEntry)));
  if (grown == nullptr) {
    sPrint(stderr, "sInitSupplangCache: failed to allocate memory.");
    return false;
  }
  std::memset(grown + capacity, 0, S_rowsPerGrowth * sizeof(ZYNSysNLSEntry));
  rows = grown;
  capacity += S_rowsPerGrowth;
  return true;
}

// Rows follow the section line up to "*END*". The count grows only once a further line
// has been read, so a last row with no "*END*" behind it is kept but not counted.
static void sReadSupplang(FILE* file) {
  char line[S_lineSize];
  if (!sSkipToSection(file, line)) return;
  if (std::fgets(line, sizeof line, file) == nullptr) return;
  ZYNSysNLSEntry* rows = nullptr;
  int capacity = 0;
  int count = 0;
  if (!sGrowRows(rows, capacity)) return;
  while (std::strstr(line, "*END*") == nullptr) {
    if (count == capacity && !sGrowRows(rows, capacity)) break;
    sParseRow(line, rows[count]);
    if (std::fgets(line, sizeof line, file) == nullptr) break;
    ++count;
  }
  S_szSuppLangData = count;
  S_suppLangCapacity = capacity;
  S_suppLangData.store(rows, std::memory_order_release);
}

static void sInitSupplangCache() {
  if (S_suppLangData.load(std::memory_order_acquire) != nullptr) return;
  bool locked = sLockGlobal();
  if (S_suppLangData.load(std::memory_order_acquire) == nullptr) {
    FILE* file = sOpenSupplang();
    if (file != nullptr) {
      sReadSupplang(file);
      std::fclose(file);
    }
  }
  sUnlockGlobal(locked);
}

void DeInitSupplangCache() {
  bool locked = sLockGlobal();
  ZYNSysNLSEntry* rows = S_suppLangData.exchange(nullptr);
  for (int i = 0; rows != nullptr && i < S_suppLangCapacity; ++i) sFreeEntry(rows[i]);
  std::free(rows);
  S_szSuppLangData = 0;
  S_suppLangCapacity = 0;
  sUnlockGlobal(locked);
}

// ---- Searching ----

static bool sContains(char const* text, char const* part) {
  return text != nullptr && part != nullptr && std::strstr(text, part) != nullptr;
}

static bool sEqual(char const* a, char const* b) { return a != nullptr && b != nullptr && std::strcmp(a, b) == 0; }

static bool sFitsTemplate(ZYNSysNLSEntry const& row, ZYNSysNLSEntry const& pattern) {
  if (pattern.language != nullptr && !sEqual(row.language, pattern.language)) return false;
  if (pattern.codePage != nullptr && !sEqual(row.codePage, pattern.codePage)) return false;
  if (pattern.locale != nullptr && !sContains(pattern.locale, row.locale)) return false;
  return true;
}

int GetNLSInformationA(ZYNSysNLSFilter filter, char mode, int& count, ZYNSysNLSNode** nodes) {
  sInitSupplangCache();
  ZYNSysNLSEntry* rows = S_suppLangData.load(std::memory_order_acquire);
  unsigned char kind = static_cast<unsigned char>(mode);
  if (rows == nullptr || S_szSuppLangData == 0 || kind > 1) return ZYN_E_FAIL;
  if (kind == 0 && filter.first.entry == nullptr) return ZYN_E_FAIL;
  ZYNSysNLSNode** tail = nodes;
  while (tail != nullptr && *tail != nullptr) tail = &(*tail)->next;
  int limit = count;
  int matches = 0;
  for (int i = 0; i < S_szSuppLangData; ++i) {
    ZYNSysNLSEntry& row = rows[i];
    bool match =
        kind == 0 ? sFitsTemplate(row, *filter.first.entry) : filter.first.function(&row, filter.argument) != 0;
    if (!match) continue;
    if (tail != nullptr && matches < limit) {
      *tail = new ZYNSysNLSNode{row.language, row.territory, row.locale, row.codePage, nullptr};
      tail = &(*tail)->next;
    }
    ++matches;
  }
  count = matches;
  return ZYN_S_OK;
}

static void sDeleteNodes(ZYNSysNLSNode* node) {
  while (node != nullptr) {
    ZYNSysNLSNode* next = node->next;
    delete node;
    node = next;
  }
}

// The row's locale contains the value.
static int sLangIDSearchFilter(ZYNSysNLSEntry* row, void* value) {
  return sContains(row->locale, static_cast<char const*>(value)) ? 1 : 0;
}

// The row's locale begins with the value, which is a bare two-letter language.
static int sLangIDSearchFallbackFilter(ZYNSysNLSEntry* row, void* value) {
  char const* wanted = static_cast<char const*>(value);
  if (wanted == nullptr || row->locale == nullptr) return 0;
  if (std::strlen(wanted) != 2 || std::strlen(row->locale) < 2) return 0;
  return std::strncmp(row->locale, wanted, 2) == 0 ? 1 : 0;
}

// The first row, in table order, of the first filter that has one.
static ZYNSysNLSNode* sFindEnvironmentRow(char const* lang, char const* currentLocale) {
  struct {
    ZYNSysNLSFilterFn function;
    char const* value;
  } const searches[] = {{sLangIDSearchFilter, lang},
                        {sLangIDSearchFallbackFilter, lang},
                        {sLangIDSearchFilter, currentLocale},
                        {sLangIDSearchFallbackFilter, currentLocale}};
  for (auto const& search : searches) {
    ZYNSysNLSFilter filter;
    filter.first.function = search.function;
    filter.argument = const_cast<char*>(search.value);
    int count = 1;
    ZYNSysNLSNode* node = nullptr;
    if (GetNLSInformationA(filter, 1, count, &node) == ZYN_S_OK && node != nullptr) return node;
  }
  return nullptr;
}

// ---- The environment ----

static int sUpdateRequiredLocaleInfo(char const* locale) {
  if (locale == nullptr) return ZYN_E_FAIL;
  sReplace(S_CLocaleRequired, locale);
  S_MultiByteCharMaxSize = static_cast<int>(MB_CUR_MAX);
  char zero[16];
  std::snprintf(zero, sizeof zero, "%3.1f", 0.0);
  char point[2] = {zero[1] != 0 ? zero[1] : '.', 0};
  sReplace(S_DecimalPoint, point);
  return ZYN_S_OK;
}

static void sCallCallbacks() {
  for (int i = 0; i < S_pFnCBArrayLen; ++i) S_pFnCBArray[i]();
}

// A locale the C library refuses is tried once more by its first five characters, the
// bare language and territory.
static char const* sSetLocaleOrShort(char const* locale) {
  if (locale == nullptr) return nullptr;
  char const* result = ZYNSysCLocale::SetLocale(LC_ALL, locale);
  if (result != nullptr) return result;
  char shortLocale[6];
  std::snprintf(shortLocale, sizeof shortLocale, "%s", locale);
  return ZYNSysCLocale::SetLocale(LC_ALL, shortLocale);
}

// Steps that need the table: the locale of the environment, the row that fits it, the
// C locale to match. True when a row was found.
static bool sChooseFromTable() {
  char* current = sDup(ZYNSysCLocale::InitLocaleFromEnvironment());
  sPrint(stdout, "[[[ Current locale: %s ]]]", sShown(current));
  char const* lang = std::getenv("LANG");
  sPrint(stdout, "[[[ Env var $LANG: %s ]]]", sShown(lang));
  ZYNSysNLSNode* row = sFindEnvironmentRow(lang, current);
  if (row != nullptr) sSetEnvEntry(row->language, row->territory, row->locale, row->codePage);
  bool matched = row != nullptr;
  sDeleteNodes(row);
  if (lang != nullptr && !sEqual(lang, S_EnvNLSData.locale)) sReplace(current, sSetLocaleOrShort(S_EnvNLSData.locale));
  sPrint(stdout, "[[[ Current locale: %s ]]]", sShown(current));
  sUpdateRequiredLocaleInfo(current);
  std::free(current);
  if (!matched) return false;
  sCallCallbacks();
  sPrint(stdout, "[[[ InitNLSCoreEnvironment: environment code page is \"%s\" ]]]", sShown(S_EnvNLSData.codePage));
  return true;
}

void InitNLSCoreEnvironment(void*) {
  if (S_bInitComplete.load(std::memory_order_acquire)) return;
  bool locked = sLockGlobal();
  // Set: done meanwhile by another thread, or under way on this one (a callback).
  if (S_bInitPending.exchange(true)) {
    sUnlockGlobal(locked);
    return;
  }
  sSetEnvEntry(S_defaultLanguage, S_defaultTerritory, S_defaultLocale, S_defaultCodePage);
  sReplace(S_DecimalPoint, ".");
  sInitSupplangCache();
  bool matched = S_suppLangData.load(std::memory_order_acquire) != nullptr && sChooseFromTable();
  if (!matched)
    sPrint(stderr,
           "[[[ InitNLSCoreEnvironment: failed to retrieve environment code page, falling back to code page "
           "ISO8859-1. ]]]");
  S_bInitComplete.store(true, std::memory_order_release);
  sUnlockGlobal(locked);
}

static bool sInitNLSCoreLocked(char const* language) {
  if (S_bInitPending.load() && sEqual(language, S_EnvNLSData.language)) return true;
  S_bInitPending.store(true);
  sInitSupplangCache();
  ZYNSysNLSNode* row = nullptr;
  if (S_suppLangData.load(std::memory_order_acquire) != nullptr) {
    ZYNSysNLSEntry pattern = {const_cast<char*>(language), nullptr, nullptr, nullptr};
    ZYNSysNLSFilter filter;
    filter.first.entry = &pattern;
    filter.argument = nullptr;
    int count = 1;
    GetNLSInformationA(filter, 0, count, &row);
  }
  bool done = row != nullptr && sUpdateRequiredLocaleInfo(sSetLocaleOrShort(row->locale)) == ZYN_S_OK;
  if (done) {
    sSetEnvEntry(row->language, row->territory, row->locale, row->codePage);
    S_bInitComplete.store(true, std::memory_order_release);
    sCallCallbacks();
  }
  sDeleteNodes(row);
  if (done) return true;
  S_bInitPending.store(false);
  S_bInitComplete.store(false);
  InitNLSCoreEnvironment(nullptr);
  return false;
}

bool InitNLSCore(char const* language) {
  if (language == nullptr) {
    InitNLSCoreEnvironment(nullptr);
    return true;
  }
  bool locked = sLockGlobal();
  bool result = sInitNLSCoreLocked(language);
  // Every road above leaves the flag set; the expression is the platform's wording of
  // the failing condition.
  if (!S_bInitPending.load())
    __assert_fail("(!S_bInitPending)", "SystemTS/QRTSysTS00.m/src/ZYNSysNLSCore", 354, "InitNLSCore");
  sUnlockGlobal(locked);
  return result;
}

void DeInitNLSCore(int) {
  bool locked = sLockGlobal();
  sFreeEntry(S_EnvNLSData);
  std::free(S_CLocaleRequired);
  S_CLocaleRequired = nullptr;
  std::free(S_DecimalPoint);
  S_DecimalPoint = nullptr;
  S_bInitPending.store(false);
  S_bInitComplete.store(false);
  DeInitSupplangCache();
  sUnlockGlobal(locked);
}

int GetEnvNLSDataA(ZYNSysNLSEnv* env) {
  if (env == nullptr) return ZYN_E_FAIL;
  InitNLSCoreEnvironment(nullptr);
  bool locked = sLockGlobal();
  env->language = S_EnvNLSData.language;
  env->territory = S_EnvNLSData.territory;
  env->locale = S_EnvNLSData.locale;
  env->codePage = S_EnvNLSData.codePage;
  env->multiByteCharMaxSize = S_MultiByteCharMaxSize;
  env->decimalPoint = S_DecimalPoint;
  sUnlockGlobal(locked);
  return ZYN_S_OK;
}

int NLSCoreRegisterCBOnChange(void (*callback)()) {
  if (callback == nullptr) return ZYN_E_FAIL;
  bool locked = sLockGlobal();
  int result = ZYN_E_FAIL;
  if (S_pFnCBArrayLen < S_maxCallbacks) {
    S_pFnCBArray[S_pFnCBArrayLen++] = callback;
    result = ZYN_S_OK;
  }
  sUnlockGlobal(locked);
  return result;
}

int ZYNGetMultiByteCharMaxSize() {
  InitNLSCoreEnvironment(nullptr);
  return S_MultiByteCharMaxSize;
}

char const* ZYNGetCLocaleRequired() {
  InitNLSCoreEnvironment(nullptr);
  return S_CLocaleRequired;
}

// ---- Questions on the table ----

static DString sAsciiText(char const* text) {
  DString result;
  for (char const* c = text; c != nullptr && *c != 0; ++c) {
    result.Append(static_cast<wchar_t>(static_cast<unsigned char>(*c)));
  }
  return result;
}

void GetSupportedLanguageList(DStrings*& languages, unsigned int& count) {
  languages = nullptr;
  count = 0;
  sInitSupplangCache();
  ZYNSysNLSEntry* rows = S_suppLangData.load(std::memory_order_acquire);
  if (rows == nullptr) return;
  languages = new DStrings();
  for (int i = 0; i < S_szSuppLangData; ++i) {
    DString language = sAsciiText(rows[i].language);
    if (languages->Find(language, 0) < 0) languages->PutBack(language);
  }
  count = static_cast<unsigned int>(languages->GetLength());
}

char const* GetCodePageByLanguage(char const* language, int* result) {
  sInitSupplangCache();
  ZYNSysNLSEntry* rows = S_suppLangData.load(std::memory_order_acquire);
  for (int i = 0; rows != nullptr && i < S_szSuppLangData; ++i) {
    if (!sEqual(rows[i].language, language)) continue;
    if (result != nullptr) *result = ZYN_S_OK;
    return rows[i].codePage;
  }
  if (result != nullptr) *result = ZYN_E_FAIL;
  return S_defaultCodePage;
}

int GetLocaleTypeFromCP(char const* codePage) {
  static char const* const S_types[] = {"Japanese", "Korean", "Traditional_Chinese", "Simplified_Chinese"};
  sInitSupplangCache();
  ZYNSysNLSEntry* rows = S_suppLangData.load(std::memory_order_acquire);
  int type = 0;
  for (int i = 0; rows != nullptr && i < S_szSuppLangData; ++i) {
    if (!sEqual(rows[i].codePage, codePage)) continue;
    for (int t = 0; t < 4; ++t) {
      if (sEqual(rows[i].language, S_types[t])) type = t + 1;
    }
  }
  return type;
}

void SetPreferredLanguage(char const* language) {
  if (language == nullptr) return;
  bool locked = sLockGlobal();
  sReplace(S_PreferredLanguage, language);
  sUnlockGlobal(locked);
}

// ---- Registration with the life-cycle manager ----

static void sNLSCoreConstructorFunc(void*) {
  if (S_suppLangData.load(std::memory_order_acquire) != nullptr) return;
  DeInitNLSCore(0);
  InitNLSCore(S_PreferredLanguage);
}

static void sNLSCoreStateChangeFunc(int) {}
static void sNLSCoreSystemCallFunc(int) {}

[[maybe_unused]] static int S_nlsCoreRegistered =
    ZYNSysLifeCycleGlobalFactoryPrivate(static_cast<ZYNSysLifeCyclePriorFlag>(40965), sNLSCoreConstructorFunc,
                                        sNLSCoreStateChangeFunc, sNLSCoreSystemCallFunc);
