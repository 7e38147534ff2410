#ifndef ZYN_ADM_ZYNADMMEMORYINPUT_H
#define ZYN_ADM_ZYNADMMEMORYINPUT_H

#include <cstddef>
#include <cstring>

#include "ZYNAdmInputStream.h"

// Bytes already in memory, read as a stream: a file read once, then checked and parsed
// from the same bytes. The bytes must outlive the stream.
class ZYNAdmMemoryInput : public ZYNAdmInputStream {
 public:
  ZYNAdmMemoryInput(char const* data, std::size_t size) : _data(data), _size(size), _at(0) {}
  int Open() override {
    _at = 0;
    return 1;
  }
  int Read(unsigned char* buffer, int count) override {
    if (count < 1) return -1;
    std::size_t n = _size - _at;
    if (n > static_cast<std::size_t>(count)) n = static_cast<std::size_t>(count);
    std::memcpy(buffer, _data + _at, n);
    _at += n;
    return static_cast<int>(n);
  }
  int Close() override { return 1; }

 private:
  char const* _data;
  std::size_t _size;
  std::size_t _at;
};

#endif
