#ifndef ZYN_XML_ZYNADMSHA256ENGINE_H
#define ZYN_XML_ZYNADMSHA256ENGINE_H

#include <cstdint>

#include "DString.h"

// The bare SHA-256 block engine: whole 64-byte blocks in, one final padding, the value
// as text. It keeps no partial block; ZYNAdmSHA256 does that for stream use.
class ZYNAdmSHA256Engine {
 public:
  ZYNAdmSHA256Engine();

  // Consumes `blocks` whole blocks of 64 bytes. The bit count grows by blocks * 512
  // computed in 32 bits, so one call must stay below 2^23 blocks.
  void Update(const unsigned char* data, unsigned int blocks);
  // Takes the last `length` bytes and pads. An engine finishes once.
  void Finalize(const unsigned char* data, unsigned int length);
  // The eight words as 64 lower-case hexadecimal digits.
  DString GetValue() const;
  // The same value without a DString, for callers below the text layer.
  void GetWords(uint32_t words[8]) const;

  // The compression runs on the processor's SHA instructions when it has them. Tests and
  // benchmarks force the portable code to compare the two; gives the previous setting.
  static bool ForcePortable(bool force);
  // Whether engines run on the SHA instructions now.
  static bool UsesHardware();

 private:
  uint64_t _bitCount;
  uint32_t _hash[8];
};

#endif
