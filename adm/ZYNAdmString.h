#ifndef ZYN_ADM_ZYNADMSTRING_H
#define ZYN_ADM_ZYNADMSTRING_H

#include <string>

// Narrow text helpers. Widen and Narrow are shells kept for the interface: they always
// give null, and the two Delete functions have nothing to free.
class ZYNAdmString {
 public:
  static std::string ToString(int value);
  static std::string ToString(unsigned int value);
  static std::string ToString(float value);
  // Replaces from `start` on and resumes behind each inserted text; the count of
  // replacements. An empty `from` replaces nothing.
  static int ReplaceAll(std::string& text, std::string const& from, std::string const& to, unsigned long start);
  static wchar_t* Widen(char const* text);
  static char* Narrow(wchar_t const* text);
  static void Delete(char*& text);
  static void Delete(wchar_t*& text);
};

#endif
