#ifndef ZYN_TESTS_SUPPORT_TESTTEXT_H
#define ZYN_TESTS_SUPPORT_TESTTEXT_H

// DString to standard strings, for comparisons that show readable values on failure.
#include <string>

#include "DString.h"

inline std::wstring W(DString const& s) {
  std::wstring out;
  for (int i = 0; i < s.Length(); ++i) out += s[i];
  return out;
}

inline std::u16string U16(DString const& s) {
  return std::u16string(reinterpret_cast<char16_t const*>(s.ConvertToUCChar()), static_cast<size_t>(s.Length()));
}

inline DString FromU16(std::u16string const& u) {
  return DString(reinterpret_cast<unsigned short const*>(u.data()), static_cast<int>(u.size()));
}

#endif
