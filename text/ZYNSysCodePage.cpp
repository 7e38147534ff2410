#include "ZYNSysCodePage.h"

ZYNSysCodePage::ZYNSysCodePage() {}
ZYNSysCodePage::~ZYNSysCodePage() {}

ZYNSysCodePage* ZYNSysCodePage::GetEnvConverter() {
  static ZYNSysCodePage* S_env = new ZYNSysCodePage();
  return S_env;
}

// Byte identity: a byte becomes the unit of the same unsigned value, a unit its low byte.
void ZYNSysCodePage::ConvertMBCSToUCS2(char const* in, int count, unsigned short* out, int* outCount) const {
  int i = 0;
  for (; i < count; ++i) out[i] = static_cast<unsigned char>(in[i]);
  if (outCount != nullptr) *outCount = i;
}

void ZYNSysCodePage::ConvertUCS2ToMBCS(unsigned short const* in, int count, char* out, int* outCount) const {
  int i = 0;
  for (; i < count; ++i) out[i] = static_cast<char>(in[i] & 0xFF);
  out[i] = 0;
  if (outCount != nullptr) *outCount = i;
}
