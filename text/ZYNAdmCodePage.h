#ifndef ZYN_TEXT_ZYNADMCODEPAGE_H
#define ZYN_TEXT_ZYNADMCODEPAGE_H

#include "DString.h"

extern const char ZYNbytesFromUTF8[256];
extern const unsigned int ZYNoffsetsFromUTF8[6];
extern const unsigned char ZYNAdmfirstByteMark[7];

// The one door between DString and narrow text. A char* given out here is freed with
// FreeAndNull.
class ZYNAdmCodePage {
 public:
  static DString ConvertStrToUcs(char const* text);
  static char* ConvertUcsToStr(DString text);
  static int ConvertUTF8ToUcs(char const* source, DString& target);
  static int ConvertUTF8ToUcs(char const* source, unsigned long size, DString& target);
  static int ConvertUcsToUTF8(DString source, char* target, unsigned long& size);
  static void FreeAndNull(char*& text);
};

#endif
