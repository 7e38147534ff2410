#ifndef ZYN_SYSTEMTS_ZYNSYSNLSCORE_H
#define ZYN_SYSTEMTS_ZYNSYSNLSCORE_H

class DStrings;

// One row of the table of supported languages.
struct ZYNSysNLSEntry {
  char* language;
  char* territory;
  char* locale;
  char* codePage;
};

// The environment in force. The strings stay the module's: never free them.
struct ZYNSysNLSEnv {
  char const* language;
  char const* territory;
  char const* locale;
  char const* codePage;
  int multiByteCharMaxSize;
  char const* decimalPoint;
};

// A search result: the row's own strings, not copies. The caller deletes the nodes.
struct ZYNSysNLSNode {
  char const* language;
  char const* territory;
  char const* locale;
  char const* codePage;
  ZYNSysNLSNode* next;
};

typedef int (*ZYNSysNLSFilterFn)(ZYNSysNLSEntry* row, void* argument);

// Mode 0: `entry` is a template; mode 1: `function` is asked with `argument`.
struct ZYNSysNLSFilter {
  union {
    ZYNSysNLSEntry const* entry;
    ZYNSysNLSFilterFn function;
  } first;
  void* argument;
};

// The table's section for this platform.
#define ZYN_SUPPLANG_SECTION "*LINUX*"

// Decides language, locale and code page once; later calls return at once.
void InitNLSCoreEnvironment(void* unused);
// Forces a language; null means the environment's. True on success.
bool InitNLSCore(char const* language);
void DeInitNLSCore(int unused);
void DeInitSupplangCache();

// 0, or ZYN_E_FAIL for a null output.
int GetEnvNLSDataA(ZYNSysNLSEnv* env);
// On entry `count` is the most nodes wanted, on return the number of matches.
int GetNLSInformationA(ZYNSysNLSFilter filter, char mode, int& count, ZYNSysNLSNode** nodes);
// At most four callbacks, called in order of registration on a change of language.
int NLSCoreRegisterCBOnChange(void (*callback)());

int ZYNGetMultiByteCharMaxSize();
char const* ZYNGetCLocaleRequired();

// The distinct languages in table order, in a new vector for the caller to delete; null
// and 0 without a table.
void GetSupportedLanguageList(DStrings*& languages, unsigned int& count);
char const* GetCodePageByLanguage(char const* language, int* result);
// 1 Japanese, 2 Korean, 3 Traditional_Chinese, 4 Simplified_Chinese, 0 none.
int GetLocaleTypeFromCP(char const* codePage);
void SetPreferredLanguage(char const* language);

#endif
