#ifndef ZYN_SYSTEMTS_ZYNSYSCLOCALE_H
#define ZYN_SYSTEMTS_ZYNSYSCLOCALE_H

struct lconv;

// The C library's locale as the language environment sets it. The first call of
// SetLocale or InitLocaleFromEnvironment takes the locale of the environment.
class ZYNSysCLocale {
 public:
  // setlocale, after the environment's locale has been taken once.
  static char const* SetLocale(int category, char const* locale);
  // Takes the environment's locale again; what setlocale returned.
  static char const* InitLocaleFromEnvironment();
  // A copy of localeconv's result; the caller deletes it.
  static lconv* GetLCConv();
  // The locale the process had before the environment's was first taken.
  static char const* GetLocaleBeforeLoad();

  // Changes one category for its own lifetime, holding the locale lock while the
  // change lasts. The result is 0 changed, 1 already so, ZYN_E_FAIL on failure.
  class ThreadLC {
   public:
    ThreadLC(int category, char const* locale, int* result = nullptr);
    ~ThreadLC();
    void Reset();

   private:
    ThreadLC(ThreadLC const&) = delete;
    ThreadLC& operator=(ThreadLC const&) = delete;

    int _category;
    char* _savedLocale;
    char* _wantedLocale;
  };
};

#endif
