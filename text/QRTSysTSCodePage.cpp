// QRTSysTSCodePage.cpp - the code page of the system layer.
#include "QRTSysTSCodePage.h"

#include "ZYNSysCodePage.h"

void QRTSysTSCodePage::ConvertStrToUcs(char const* in, int count, unsigned short* out, int* outCount) {
  ZYNSysCodePage* converter = ZYNSysCodePage::GetEnvConverter();
  if (converter == nullptr) return;
  converter->ConvertMBCSToUCS2(in, count, out, outCount);
}

void QRTSysTSCodePage::ConvertUcsToStr(unsigned short* in, int count, char* out, int* outCount) {
  ZYNSysCodePage* converter = ZYNSysCodePage::GetEnvConverter();
  if (converter == nullptr) return;
  converter->ConvertUCS2ToMBCS(in, count, out, outCount);
}
