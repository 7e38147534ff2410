#ifndef ZYN_TEXT_ZYNSYSCODEPAGE_H
#define ZYN_TEXT_ZYNSYSCODEPAGE_H

#include "ZYNSysIConvTSWrap.h"

// A converter between one named code page and UCS-2 units, through iconv with a
// descriptor pair per thread. A code page that can't be had converts by byte identity.
// The environment's converter is made on first use, so it is safe to reach from static
// constructors.
//
// A byte that the code page rejects becomes the unit 0xDC00 + byte (bytes 0x80 to 0xFF
// only), and such a unit converts back to its byte: names that are not valid text in
// the code page still reach the same file.
class ZYNSysCodePage {
 public:
  ZYNSysCodePage();
  explicit ZYNSysCodePage(char const* name);
  virtual ~ZYNSysCodePage();

  // The process-wide converter for the environment's code page; null only while it is
  // being built or after it was destroyed at exit.
  static ZYNSysCodePage* GetEnvCodePageConv();
  static ZYNSysCodePage* GetEnvConverter();
  // Follows a change of the language environment.
  static void OnChangeNLSCore();

  char const* GetCodePageName() const { return _codePageName; }
  bool IsValid() const;

  // Multibyte to units: the caller's output holds at least `count` units, plus one for
  // the terminator that identity mode may store.
  void ConvertMBCSToUCS2(char const* in, int count, unsigned short* out, int* outCount) const;
  // Resumable: at most `outSize` units; `in` and `left` advance, `in` becomes null at the
  // end. Returns the units stored.
  unsigned long ConvertMBCSToUCS2(char const*& in, unsigned long& left, unsigned short* out,
                                  unsigned long outSize) const;
  // Units to multibyte: the caller's output holds `count` * 4 + 1 bytes.
  void ConvertUCS2ToMBCS(unsigned short const* in, int count, char* out, int* outCount) const;

  // 0 when every character survives the round trip, -1 otherwise; '?' always counts as
  // convertible.
  int CanConvertMBCSToUCS2(char const* in, unsigned long count) const;
  int CanConvertUCS2ToMBCS(unsigned short const* in, int count) const;

  void _Reinitialize(char const* name);

 private:
  typedef void (ZYNSysCodePage::*ToUcs2Fn)(char const*&, int&, unsigned short*, int*) const;
  typedef void (ZYNSysCodePage::*FromUcs2Fn)(unsigned short const*, int, char*, int*) const;

  ZYNSysCodePage(ZYNSysCodePage const&) = delete;
  ZYNSysCodePage& operator=(ZYNSysCodePage const&) = delete;

  int _InitConvDesc();
  void _CPtoUCS2(char const*& in, int& inLeft, unsigned short* out, int* outCount) const;
  void _UCS2toCP(unsigned short const* in, int count, char* out, int* outCount) const;
  void _CPtoUCS2ByIdentity(char const*& in, int& inLeft, unsigned short* out, int* outCount) const;
  void _UCS2toCPByIdentity(unsigned short const* in, int count, char* out, int* outCount) const;

  char* _codePageName;
  ToUcs2Fn _toUcs2;
  FromUcs2Fn _fromUcs2;
  IConvDesc_t _toUcs2Desc;
  IConvDesc_t _fromUcs2Desc;
  // ISO 8859-1 maps each byte to the unit of the same value: converted here, without a
  // call into iconv for every path of a scan. Results are those of the iconv road.
  bool _latin1 = false;
};

// While one lives, conversions on this thread print nothing on standard error: for texts
// tried out rather than read, whose faults are expected and say nothing to the user.
class ZYNSysCodePageQuiet {
 public:
  ZYNSysCodePageQuiet();
  ~ZYNSysCodePageQuiet();
  ZYNSysCodePageQuiet(ZYNSysCodePageQuiet const&) = delete;
  ZYNSysCodePageQuiet& operator=(ZYNSysCodePageQuiet const&) = delete;
};

#endif
