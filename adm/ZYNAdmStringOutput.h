#ifndef ZYN_ADM_ZYNADMSTRINGOUTPUT_H
#define ZYN_ADM_ZYNADMSTRINGOUTPUT_H

#include <cstddef>
#include <string>

#include "ZYNAdmOutputStream.h"

// Keeps every byte written, in memory: pieces of a document made apart and put together
// later, and documents written to be read back.
class ZYNAdmStringOutput : public ZYNAdmOutputStream {
 public:
  int Open() override { return 1; }
  int Write(unsigned char* buffer, int count) override {
    bytes.append(reinterpret_cast<char const*>(buffer), static_cast<std::size_t>(count));
    return count;
  }
  int Close() override { return 1; }

  std::string bytes;
};

#endif
