#ifndef ZYN_XML_ZYNADMSHA256_H
#define ZYN_XML_ZYNADMSHA256_H

#include <cstdint>

#include "DString.h"
#include "ZYNAdmOutputStream.h"

class ZYNAdmInputStream;
class ZYNAdmSHA256Engine;

// SHA-256 as an output stream, so that a writer can serialise straight into a digest.
// Good for one use: new, open, written, closed, then read with GetHash().
class ZYNAdmSHA256 : public ZYNAdmOutputStream {
 public:
  ZYNAdmSHA256();
  ~ZYNAdmSHA256() override;
  ZYNAdmSHA256(const ZYNAdmSHA256&) = delete;
  ZYNAdmSHA256& operator=(const ZYNAdmSHA256&) = delete;

  int Open() override;
  int Write(unsigned char* buffer, int count) override;
  int Close() override;

  // The 64 hexadecimal digits once closed, else an empty text.
  DString GetHash();
  // The digest of the whole of an unopened stream, or an empty text with an error
  // record pushed.
  static DString GetHash(ZYNAdmInputStream& stream);

 private:
  ZYNAdmSHA256Engine* _engine;
  int _state;  // 0 new, 1 open, 2 closed
  uint64_t _pendingCount;
  unsigned char _block[64];
};

#endif
