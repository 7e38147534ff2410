// ZYNSysCodePage.cpp - code page conversion through iconv, with bytes it rejects kept.
#include "ZYNSysCodePage.h"

#include <strings.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "QRTSysMTGlobalMutex.h"
#include "ZYNResult.h"
#include "ZYNSysNLSCore.h"

// Bytes the code page rejects travel as units of this range (only 0x80 to 0xFF are
// used). iconv never yields them, as UCS-2 has no lone surrogates, so they can't be
// confused with text.
static const unsigned short S_escapeBase = 0xDC00;

static bool sIsEscape(unsigned short unit) { return unit >= S_escapeBase + 0x80 && unit <= S_escapeBase + 0xFF; }

static std::atomic<ZYNSysCodePage*> S_envConverter{nullptr};
static std::atomic<bool> S_envConverterGone{false};
static bool S_envConverterBuilding = false;  // under the global mutex
static bool S_onChangeRegistered = false;    // under the global mutex

ZYNSysCodePage::ZYNSysCodePage()
    : _codePageName(nullptr), _toUcs2(nullptr), _fromUcs2(nullptr), _toUcs2Desc(0), _fromUcs2Desc(0) {
  _Reinitialize(nullptr);
}

ZYNSysCodePage::ZYNSysCodePage(char const* name)
    : _codePageName(nullptr), _toUcs2(nullptr), _fromUcs2(nullptr), _toUcs2Desc(0), _fromUcs2Desc(0) {
  _Reinitialize(name);
}

ZYNSysCodePage::~ZYNSysCodePage() {
  // The environment's converter dies at exit; later callers get none rather than a
  // destroyed object.
  ZYNSysCodePage* self = this;
  if (S_envConverter.compare_exchange_strong(self, nullptr)) S_envConverterGone.store(true);
  std::free(_codePageName);
  _codePageName = nullptr;
}

ZYNSysCodePage* ZYNSysCodePage::GetEnvCodePageConv() {
  ZYNSysCodePage* converter = S_envConverter.load(std::memory_order_acquire);
  if (converter != nullptr || S_envConverterGone.load()) return converter;
  bool locked = QRTSysMTGlobalMutex(QRTSysMTGlobalMutexLock, nullptr, 0) == 1;
  converter = S_envConverter.load(std::memory_order_acquire);
  // A conversion reached again from inside the build on this thread gets no converter,
  // rather than entering the construction of the static a second time.
  if (converter == nullptr && !S_envConverterBuilding && !S_envConverterGone.load()) {
    S_envConverterBuilding = true;
    static ZYNSysCodePage S_envCodePage;
    converter = &S_envCodePage;
    S_envConverter.store(converter, std::memory_order_release);
    S_envConverterBuilding = false;
    if (!S_onChangeRegistered) {
      S_onChangeRegistered = true;
      NLSCoreRegisterCBOnChange(OnChangeNLSCore);
    }
  }
  if (locked) QRTSysMTGlobalMutex(QRTSysMTGlobalMutexUnlock, nullptr, 0);
  return converter;
}

ZYNSysCodePage* ZYNSysCodePage::GetEnvConverter() { return GetEnvCodePageConv(); }

void ZYNSysCodePage::OnChangeNLSCore() {
  ZYNSysCodePage* converter = GetEnvCodePageConv();
  if (converter != nullptr) converter->_Reinitialize(nullptr);
}

void ZYNSysCodePage::_Reinitialize(char const* name) {
  std::free(_codePageName);
  _codePageName = nullptr;
  if (name == nullptr) {
    ZYNSysNLSEnv env = {};
    GetEnvNLSDataA(&env);
    name = env.codePage;
  }
  _codePageName = strdup(name != nullptr ? name : "");
  _toUcs2 = &ZYNSysCodePage::_CPtoUCS2;
  _fromUcs2 = &ZYNSysCodePage::_UCS2toCP;
  _latin1 = false;
  if (_InitConvDesc() == ZYN_S_OK) {
    _latin1 = strcasecmp(_codePageName, "ISO8859-1") == 0 || strcasecmp(_codePageName, "ISO-8859-1") == 0;
    return;
  }
  _toUcs2 = &ZYNSysCodePage::_CPtoUCS2ByIdentity;
  _fromUcs2 = &ZYNSysCodePage::_UCS2toCPByIdentity;
}

bool ZYNSysCodePage::IsValid() const { return _toUcs2 != &ZYNSysCodePage::_CPtoUCS2ByIdentity; }

int ZYNSysCodePage::_InitConvDesc() {
  // No code page at all is the quiet way into identity mode.
  if (_codePageName == nullptr || *_codePageName == 0 || std::strcmp(_codePageName, "N/A") == 0) return ZYN_E_FAIL;
  if (ZYNSysIConvTSWrap::Open(ZYN_ICONV_PIVOT, _codePageName, _toUcs2Desc) == ZYN_S_OK &&
      ZYNSysIConvTSWrap::Open(_codePageName, ZYN_ICONV_PIVOT, _fromUcs2Desc) == ZYN_S_OK)
    return ZYN_S_OK;
  std::fprintf(stderr, "ERROR: SUPPLANG_K6 does not contain a valid code set for code page: %s.\n", _codePageName);
  std::fflush(stderr);
  return ZYN_E_FAIL;
}

void ZYNSysCodePage::ConvertMBCSToUCS2(char const* in, int count, unsigned short* out, int* outCount) const {
  if (outCount != nullptr) *outCount = -1;
  char const* text = in;
  int left = count;
  (this->*_toUcs2)(text, left, out, outCount);
}

unsigned long ZYNSysCodePage::ConvertMBCSToUCS2(char const*& in, unsigned long& left, unsigned short* out,
                                                unsigned long outSize) const {
  if (in == nullptr || left == 0 || outSize == 0) return 0;
  int inLeft = left > INT_MAX ? INT_MAX : static_cast<int>(left);
  int stored = outSize > INT_MAX ? INT_MAX : static_cast<int>(outSize);
  int before = inLeft;
  (this->*_toUcs2)(in, inLeft, out, &stored);
  left -= static_cast<unsigned long>(before - inLeft);
  if (left == 0) in = nullptr;
  return stored < 0 ? 0 : static_cast<unsigned long>(stored);
}

void ZYNSysCodePage::ConvertUCS2ToMBCS(unsigned short const* in, int count, char* out, int* outCount) const {
  (this->*_fromUcs2)(in, count, out, outCount);
}

static thread_local int S_quietScopes = 0;

ZYNSysCodePageQuiet::ZYNSysCodePageQuiet() { ++S_quietScopes; }

ZYNSysCodePageQuiet::~ZYNSysCodePageQuiet() { --S_quietScopes; }

// Reports an iconv failure the way the caller's situation calls for. True when the
// conversion must stop because the caller's buffer is full, which is expected.
static bool sReportToUcs2Failure(int error, bool callerSized, size_t inBytesLeft) {
  if (S_quietScopes > 0) return error == E2BIG && callerSized;
  if (error == E2BIG) {
    if (callerSized) return true;
    std::fprintf(stderr, "iconv E2BIG error: buffer overflow. InBytesLeft: %llu\n",
                 static_cast<unsigned long long>(inBytesLeft));
  } else if (error == EINVAL) {
    std::fputs("iconv EINVAL error: input buffer was truncated.\n", stderr);
  } else if (error != EILSEQ) {
    std::fprintf(stderr, "iconv errno is: %d\n", error);
  }
  std::fflush(stderr);
  return false;
}

void ZYNSysCodePage::_CPtoUCS2(char const*& in, int& inLeft, unsigned short* out, int* outCount) const {
  iconv_t desc = ZYNSysIConvTSWrap::GetIConvDesc(_toUcs2Desc);
  if (desc == reinterpret_cast<iconv_t>(-1)) {
    _CPtoUCS2ByIdentity(in, inLeft, out, outCount);
    return;
  }
  bool callerSized = outCount != nullptr && *outCount != 0;
  size_t room = 2 * static_cast<size_t>(outCount != nullptr && *outCount > 0 ? *outCount : (inLeft > 0 ? inLeft : 0));
  if (_latin1 && inLeft >= 0 && room >= 2 * static_cast<size_t>(inLeft)) {
    unsigned char const* bytes = reinterpret_cast<unsigned char const*>(in);
    for (int i = 0; i < inLeft; ++i) out[i] = bytes[i];
    in += inLeft;
    if (outCount != nullptr) *outCount = inLeft;
    inLeft = 0;
    return;
  }
  char* inPtr = const_cast<char*>(in);
  size_t inBytes = inLeft > 0 ? static_cast<size_t>(inLeft) : 0;
  char* outPtr = reinterpret_cast<char*>(out);
  for (;;) {
    size_t converted = iconv(desc, &inPtr, &inBytes, &outPtr, &room);
    if (converted != static_cast<size_t>(-1) || inBytes == 0) break;
    if (sReportToUcs2Failure(errno, callerSized, inBytes)) break;
    // One rejected byte at a time: the bytes of a bad sequence each get their own unit,
    // and the conversion back gives the same bytes.
    unsigned char bad = static_cast<unsigned char>(*inPtr);
    ++inPtr;
    --inBytes;
    if (room < 2) break;
    if (bad >= 0x80) {
      unsigned short unit = static_cast<unsigned short>(S_escapeBase + bad);
      std::memcpy(outPtr, &unit, 2);
    } else {
      // Not reversible; only a code page that isn't ASCII-based rejects such a byte.
      outPtr[0] = 0;
      outPtr[1] = 0x3F;
    }
    outPtr += 2;
    room -= 2;
  }
  in = inPtr;
  inLeft = static_cast<int>(inBytes);
  if (outCount != nullptr) *outCount = static_cast<int>((outPtr - reinterpret_cast<char*>(out)) / 2);
  iconv(desc, nullptr, nullptr, nullptr, nullptr);
}

void ZYNSysCodePage::_UCS2toCP(unsigned short const* in, int count, char* out, int* outCount) const {
  iconv_t desc = ZYNSysIConvTSWrap::GetIConvDesc(_fromUcs2Desc);
  if (desc == reinterpret_cast<iconv_t>(-1)) {
    _UCS2toCPByIdentity(in, count, out, outCount);
    return;
  }
  size_t units = count > 0 ? static_cast<size_t>(count) : 0;
  if (_latin1) {
    for (size_t i = 0; i < units; ++i) {
      unsigned short unit = in[i];
      out[i] = unit <= 0xFF ? static_cast<char>(unit) : (sIsEscape(unit) ? static_cast<char>(unit & 0xFF) : '?');
    }
    out[units] = 0;
    if (outCount != nullptr) *outCount = static_cast<int>(units);
    return;
  }
  size_t room = units * 4;
  size_t inBytes = units * 2;
  char* inPtr = reinterpret_cast<char*>(const_cast<unsigned short*>(in));
  char* outPtr = out;
  for (;;) {
    size_t converted = iconv(desc, &inPtr, &inBytes, &outPtr, &room);
    if (converted != static_cast<size_t>(-1) || inBytes == 0) break;
    if (errno == E2BIG || room < 1) break;
    unsigned short unit;
    std::memcpy(&unit, inPtr, 2);
    *outPtr++ = sIsEscape(unit) ? static_cast<char>(unit & 0xFF) : '?';
    --room;
    inPtr += 2;
    inBytes -= 2;
  }
  *outPtr = 0;
  if (outCount != nullptr) *outCount = static_cast<int>(outPtr - out);
  iconv(desc, nullptr, nullptr, nullptr, nullptr);
}

void ZYNSysCodePage::_CPtoUCS2ByIdentity(char const*& in, int& inLeft, unsigned short* out, int* outCount) const {
  int limit = outCount != nullptr && *outCount > 0 ? *outCount : inLeft;
  int stored = 0;
  while (stored < limit && stored < inLeft && in[stored] != 0) {
    out[stored] = static_cast<unsigned char>(in[stored]);
    ++stored;
  }
  if (stored < limit) out[stored] = 0;
  in += stored;
  inLeft -= stored;
  if (outCount != nullptr) *outCount = stored;
}

void ZYNSysCodePage::_UCS2toCPByIdentity(unsigned short const* in, int count, char* out, int* outCount) const {
  int i = 0;
  for (; i < count; ++i) out[i] = static_cast<char>(in[i] & 0xFF);
  out[i < 0 ? 0 : i] = 0;
  if (outCount != nullptr) *outCount = i;
}

static const char S_overflowMessage[] = "ERROR: ZYNSysCodePage::CanConvertMBCSToUCS2 - an overflow has occurred!\n";

int ZYNSysCodePage::CanConvertMBCSToUCS2(char const* in, unsigned long count) const {
  if (in == nullptr) return 0;
  char const* text = in;
  unsigned long left = count;
  while (text != nullptr && left > 0) {
    char const* start = text;
    unsigned short unit[2] = {0, 0};
    // Room for one unit makes the conversion take exactly one character.
    unsigned long units = ConvertMBCSToUCS2(text, left, unit, 1);
    size_t length = text == nullptr ? static_cast<size_t>(count - (start - in)) : static_cast<size_t>(text - start);
    if (units > 1) {
      std::fputs(S_overflowMessage, stderr);
      return -1;
    }
    if (length == 0) return -1;
    if (length == 1 && *start == '?') continue;
    if (units == 0 || sIsEscape(unit[0]) || unit[0] == 0x3F00) return -1;
    char back[8];
    int backCount = 0;
    ConvertUCS2ToMBCS(unit, 1, back, &backCount);
    if (static_cast<size_t>(backCount) != length || std::memcmp(back, start, length) != 0) return -1;
  }
  return 0;
}

int ZYNSysCodePage::CanConvertUCS2ToMBCS(unsigned short const* in, int count) const {
  if (in == nullptr) return 0;
  for (int i = 0; i < count; ++i) {
    // An escape unit stands for a byte, which it gives back exactly.
    if (in[i] == '?' || sIsEscape(in[i])) continue;
    char bytes[8];
    int byteCount = 0;
    ConvertUCS2ToMBCS(in + i, 1, bytes, &byteCount);
    if (byteCount <= 0) return -1;
    unsigned short back[8];
    int backCount = 0;
    ConvertMBCSToUCS2(bytes, byteCount, back, &backCount);
    if (backCount > 1) {
      std::fputs(S_overflowMessage, stderr);
      return -1;
    }
    if (backCount != 1 || back[0] != in[i]) return -1;
  }
  return 0;
}
