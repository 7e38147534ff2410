#ifndef ZYN_FUZZ_FUZZINPUT_H
#define ZYN_FUZZ_FUZZINPUT_H

// The fuzzer's bytes as the input stream a file would be, in pieces of `chunk` bytes (0:
// as many as asked), and the tree they parse to.
#include <cstddef>
#include <cstdint>

#include "ZYNAdmInputStream.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlParser.h"

class FuzzInput : public ZYNAdmInputStream {
 public:
  FuzzInput(const uint8_t* data, size_t size, size_t chunk) : _data(data), _size(size), _chunk(chunk) {}
  int Open() override { return 1; }
  int Read(unsigned char* buffer, int count) override {
    if (count < 1) return -1;  // as the file stream does
    size_t n = static_cast<size_t>(count);
    if (n > _size - _at) n = _size - _at;
    if (_chunk > 0 && n > _chunk) n = _chunk;
    for (size_t i = 0; i < n; ++i) buffer[i] = _data[_at + i];
    _at += n;
    return static_cast<int>(n);
  }
  int Close() override { return 1; }

 private:
  const uint8_t* _data;
  size_t _size;
  size_t _chunk;
  size_t _at = 0;
};

// The parsed tree, or false where the bytes are no document.
inline bool FuzzParse(const uint8_t* data, size_t size, ZYNAdmXmlElement& root) {
  FuzzInput input(data, size, 0);
  return ZYNAdmXmlParser::Parse(input, root) == 1 && !root.IsEmpty();
}

#endif
