#ifndef ZYN_ADM_ZYNADMOUTPUTSTREAMBUFFER_H
#define ZYN_ADM_ZYNADMOUTPUTSTREAMBUFFER_H

#include "ZYNAdmOutputStream.h"

// Collects written bytes in memory, one chunk per Write.
class ZYNAdmOutputStreamBuffer : public ZYNAdmOutputStream {
 public:
  ZYNAdmOutputStreamBuffer() : _first(nullptr), _last(nullptr) {}
  ~ZYNAdmOutputStreamBuffer() override;
  int Open() override { return 1; }
  int Write(unsigned char* buffer, int count) override;
  int Close() override { return 1; }
  // One malloc'd block of everything written so far; the caller frees it. 0 when
  // nothing was written.
  int GetBuffer(unsigned char*& data, int& size);

 private:
  struct Chunk;
  ZYNAdmOutputStreamBuffer(ZYNAdmOutputStreamBuffer const&) = delete;
  ZYNAdmOutputStreamBuffer& operator=(ZYNAdmOutputStreamBuffer const&) = delete;

  Chunk* _first;
  Chunk* _last;  // kept so that appending does not walk the list
};

#endif
