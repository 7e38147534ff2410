#ifndef ZYN_TEXT_QRTSYSTSCODEPAGE_H
#define ZYN_TEXT_QRTSYSTSCODEPAGE_H

// Conversions of plain arrays in the environment's code page, through its converter;
// without a converter they do nothing.
class QRTSysTSCodePage {
 public:
  // The output holds `count` units.
  static void ConvertStrToUcs(char const* in, int count, unsigned short* out, int* outCount);
  // The output holds `count` * 4 + 1 bytes.
  static void ConvertUcsToStr(unsigned short* in, int count, char* out, int* outCount);
};

#endif
