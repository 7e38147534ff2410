// ZYNAdmNameReadings.cpp - a recorded name read back under each reading a machine may use.
#include "ZYNAdmNameReadings.h"

#include <iconv.h>
#include <langinfo.h>
#include <locale.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "DStrings.h"
#include "ZYNAdmCodePage.h"
#include "ZYNSysCodePage.h"

namespace {

// The code set the environment's locale names, as the C library knows it; empty where
// the locale isn't installed or iconv doesn't know the code set (a converter made for
// it would complain on standard error).
std::string LocaleCodeSet() {
  locale_t locale = newlocale(LC_CTYPE_MASK, "", static_cast<locale_t>(0));
  if (locale == static_cast<locale_t>(0)) return std::string();
  std::string codeSet = nl_langinfo_l(CODESET, locale);
  freelocale(locale);
  iconv_t probe = iconv_open("UTF-8", codeSet.c_str());
  if (probe == reinterpret_cast<iconv_t>(-1)) return std::string();
  iconv_close(probe);
  return codeSet;
}

// The readings a name may have been recorded under, made once for the process; each
// converter keeps its descriptors per thread.
struct Readings {
  Readings() {
    converters.emplace_back(new ZYNSysCodePage("ISO8859-1"));
    converters.emplace_back(new ZYNSysCodePage("UTF-8"));
    std::string codeSet = LocaleCodeSet();
    if (!codeSet.empty()) converters.emplace_back(new ZYNSysCodePage(codeSet.c_str()));
  }
  std::vector<std::unique_ptr<ZYNSysCodePage>> converters;
};

Readings const& TheReadings() {
  static Readings const readings;
  return readings;
}

// The bytes `reading` reads as exactly `units`, or false where no bytes give them back.
bool BytesOf(ZYNSysCodePage const& reading, unsigned short const* units, int count, std::string& bytes) {
  std::vector<char> narrow(static_cast<size_t>(count) * 4 + 4);
  int written = 0;
  reading.ConvertUCS2ToMBCS(units, count, narrow.data(), &written);
  if (written <= 0) return false;
  std::vector<unsigned short> back(static_cast<size_t>(written) + 1);
  int read = written + 1;
  reading.ConvertMBCSToUCS2(narrow.data(), written, back.data(), &read);
  if (read != count || std::memcmp(back.data(), units, static_cast<size_t>(count) * 2) != 0) return false;
  bytes.assign(narrow.data(), static_cast<size_t>(written));
  return bytes.find('\0') == std::string::npos;
}

bool IsAscii(unsigned short const* units, int count) {
  for (int i = 0; i < count; ++i) {
    if (units[i] >= 0x80) return false;
  }
  return true;
}

}  // namespace

void ZYNAdmNameReadings::Others(DString const& recorded, DStrings& others) {
  unsigned short const* units = recorded.ConvertToUCChar();
  int count = recorded.Length();
  if (count == 0 || IsAscii(units, count)) return;
  ZYNSysCodePageQuiet quiet;
  for (auto const& reading : TheReadings().converters) {
    std::string bytes;
    if (!BytesOf(*reading, units, count, bytes)) continue;
    DString now = ZYNAdmCodePage::ConvertStrToUcs(bytes.c_str());
    if (now == recorded || others.Find(now, 0) >= 0) continue;
    others.PutBack(now);
  }
}
