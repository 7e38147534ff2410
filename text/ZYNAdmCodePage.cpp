// ZYNAdmCodePage.cpp - text between the string value and narrow text in the code page or UTF-8.
#include "ZYNAdmCodePage.h"

#include <cstdlib>
#include <cstring>

#include "ZYNSysCodePage.h"

// Trailing bytes by first byte; overlong and 5- and 6-byte forms are accepted.
const char ZYNbytesFromUTF8[256] = {
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1, 1, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5};

const unsigned int ZYNoffsetsFromUTF8[6] = {0x00000000u, 0x00003080u, 0x000E2080u,
                                            0x03C82080u, 0xFA082080u, 0x82082080u};

const unsigned char ZYNAdmfirstByteMark[7] = {0x00, 0x00, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};

DString ZYNAdmCodePage::ConvertStrToUcs(char const* text) {
  if (text == nullptr || *text == 0) return DString();
  size_t length = std::strlen(text);
  if (length > 0x3FFFFFFFu) return DString();
  ZYNSysCodePage* converter = ZYNSysCodePage::GetEnvConverter();
  if (converter == nullptr) return DString();
  unsigned short* units = static_cast<unsigned short*>(std::malloc(length * 2 + 2));
  if (units == nullptr) return DString();
  int count = 0;
  converter->ConvertMBCSToUCS2(text, static_cast<int>(length), units, &count);
  DString result(units, count < 0 ? 0 : count);
  std::free(units);
  return result;
}

char* ZYNAdmCodePage::ConvertUcsToStr(DString text) {
  int length = text.Length();
  char* narrow = static_cast<char*>(std::malloc(static_cast<size_t>(length) * 4 + 4));
  if (narrow == nullptr) return nullptr;
  narrow[0] = 0;
  ZYNSysCodePage* converter = ZYNSysCodePage::GetEnvConverter();
  if (converter == nullptr || length == 0) return narrow;
  int count = 0;
  converter->ConvertUCS2ToMBCS(text.ConvertToUCChar(), length, narrow, &count);
  narrow[count < 0 ? 0 : count] = 0;
  return narrow;
}

int ZYNAdmCodePage::ConvertUTF8ToUcs(char const* source, DString& target) {
  unsigned long size = source == nullptr ? 0 : std::strlen(source);
  return ConvertUTF8ToUcs(source, size, target);
}

int ZYNAdmCodePage::ConvertUTF8ToUcs(char const* source, unsigned long size, DString& target) {
  if (source == nullptr || size == 0) {
    target.Empty();
    return 0;
  }
  if (size > 0x3FFFFFFFu) return 1;
  target._AllocNewRefString(static_cast<int>(size), 0, 0);
  if (!target._IsWritable()) return 1;
  DStringInternal* record = target._p;
  uint16_t* out = record->Units();
  int capacity = record->Capacity();
  unsigned char const* in = reinterpret_cast<unsigned char const*>(source);
  record->length = 0;
  record->SetHashStale();
  int status = 0;
  int written = 0;
  unsigned long position = 0;
  // Every exit leaves a terminator at the length, so that code reading up to the
  // terminator sees the same text as code going by Length().
  while (position < size) {
    unsigned int extra = static_cast<unsigned char>(ZYNbytesFromUTF8[in[position]]);
    if (position + extra >= size) {
      out[written] = 0;
      return 3;
    }
    uint32_t value = 0;
    for (unsigned int k = 0; k <= extra; ++k) {
      value += in[position++];
      if (k < extra) value <<= 6;
    }
    if (written >= capacity) {
      out[written] = 0;
      return 2;
    }
    if (value == ZYNoffsetsFromUTF8[extra]) {
      out[written] = 0;
      return 5;
    }
    value -= ZYNoffsetsFromUTF8[extra];
    if (value >= 0x10000u) {
      value = '?';
      status = 4;
    }
    out[written++] = static_cast<uint16_t>(value);
    record->length = written;
  }
  out[written] = 0;
  return status;
}

int ZYNAdmCodePage::ConvertUcsToUTF8(DString source, char* target, unsigned long& size) {
  if (target == nullptr || size == 0) return 6;
  unsigned long room = size;
  int length = source.Length();
  unsigned short const* units = source.ConvertToUCChar();
  unsigned char* out = reinterpret_cast<unsigned char*>(target);
  unsigned long used = 0;
  for (int i = 0; i < length; ++i) {
    unsigned int unit = units[i];
    unsigned int bytes = unit < 0x80 ? 1 : (unit < 0x800 ? 2 : 3);
    if (used + bytes >= room) {
      target[0] = 0;
      size = 0;
      return 6;
    }
    switch (bytes) {
      case 3:
        out[used + 2] = static_cast<unsigned char>((unit | 0x80) & 0xBF);
        unit >>= 6;
        // fall through
      case 2:
        out[used + 1] = static_cast<unsigned char>((unit | 0x80) & 0xBF);
        unit >>= 6;
        // fall through
      default:
        out[used] = static_cast<unsigned char>(unit | ZYNAdmfirstByteMark[bytes]);
    }
    used += bytes;
  }
  out[used] = 0;
  size = used;
  return 0;
}

void ZYNAdmCodePage::FreeAndNull(char*& text) {
  if (text == nullptr) return;
  std::free(text);
  text = nullptr;
}
