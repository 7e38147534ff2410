// Feeds arbitrary bytes to the XML parser and writes back what it built. Each input is
// parsed twice: in one piece, and in Reads of a few bytes. For input of ASCII bytes, which
// no cut can garble, both must give the same tree.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "ZYNAdmInputStream.h"
#include "ZYNAdmOutputStream.h"
#include "ZYNAdmStringOutput.h"
#include "ZYNAdmXmlElement.h"
#include "ZYNAdmXmlParser.h"

namespace {

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

// The tree written back, or a marker for a failed parse or write.
std::string sParseAndWrite(const uint8_t* data, size_t size, size_t chunk) {
  FuzzInput input(data, size, chunk);
  ZYNAdmXmlElement root;
  if (ZYNAdmXmlParser::Parse(input, root) == 0) return "<parse failed>";
  if (root.IsEmpty()) return "<no element>";
  ZYNAdmStringOutput output;
  if (ZYNAdmXmlParser::GetXml(root, output) == 0) return "<write failed>" + output.bytes;
  return output.bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string whole = sParseAndWrite(data, size, 0);
  const size_t chunk = size > 0 ? 1 + data[size - 1] % 7 : 1;
  const std::string pieces = sParseAndWrite(data, size, chunk);
  bool ascii = true;
  for (size_t i = 0; i < size && ascii; ++i) ascii = data[i] < 0x80;
  if (ascii && whole != pieces) std::abort();
  return 0;
}
