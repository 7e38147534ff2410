#ifndef ZYN_TEXT_ZYNSYSCODEPAGE_H
#define ZYN_TEXT_ZYNSYSCODEPAGE_H

// A converter between one code page and UCS-2 units. The environment's converter is
// made on first use, so it is safe to reach from static constructors.
class ZYNSysCodePage {
 public:
  ZYNSysCodePage();
  virtual ~ZYNSysCodePage();

  static ZYNSysCodePage* GetEnvConverter();

  // Multibyte to units: the caller's output holds at least `count` units.
  void ConvertMBCSToUCS2(char const* in, int count, unsigned short* out, int* outCount) const;
  // Units to multibyte: the caller's output holds `count` * 4 + 1 bytes.
  void ConvertUCS2ToMBCS(unsigned short const* in, int count, char* out, int* outCount) const;

  bool IsValid() const { return false; }

 private:
  ZYNSysCodePage(ZYNSysCodePage const&) = delete;
  ZYNSysCodePage& operator=(ZYNSysCodePage const&) = delete;
};

#endif
